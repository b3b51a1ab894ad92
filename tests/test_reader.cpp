// The pull reader: neutral values when closed, the node walk and navigation, the owned text,
// malformed input, and that every getter frees what libxml2 allocated.
#include <gtest/gtest.h>
#include <libxml/xmlreader.h>

#include "TestSupport.h"
#include "tarnxml/XmlReader.h"

namespace {

using tarn::XmlReader;

std::size_t drain(XmlReader& r) { return r.read() ? 1 + drain(r) : 0; }

// Every query of the reader in one line: numbers, predicates as 0/1, then each text after a '|',
// then value(string&) and value(bool&). Also the leak walk: each call that makes libxml2 allocate.
std::string describe(XmlReader& r) {
    std::string out;
    for (int n : {r.state(), r.nodeType(), r.depth(), r.attributeCount(), static_cast<int>(r.quoteChar())})
        out += std::to_string(n) + " ";
    for (bool b : {r.hasValue(), r.isDefault(), r.isEmpty(), r.isNamespaceDecl(), r.isValid(), r.hasAttributes()})
        out += b ? '1' : '0';
    const char* const noPrefix = nullptr;
    for (const std::string& t :
         {r.baseUri(), r.localName(), r.name(), r.namespaceURI(), r.prefix(), r.value(), r.lookupNamespace("p"),
          r.lookupNamespace(noPrefix), r.getAttribute(0), r.getAttribute(std::string("x")),
          r.getAttribute("y", "urn:p"), r.innerXml(), r.outerXml(), r.encoding(), r.lang(), r.xmlVersion()})
        out += "|" + t;
    std::string text = "stale";
    bool flag = true;
    r.value(text), r.value(flag);
    return out + "|" + text + (flag ? "T" : "F");
}

int movements(XmlReader& r) {
    return r.read() + r.readAttributeValue() + r.nextElement() + r.nextSibling() + r.firstAttribute() +
           r.nextAttribute() + r.moveToElement() + r.moveToAttribute(0) + r.moveToAttribute("x") +
           r.moveToAttribute(static_cast<const char*>(nullptr));
}

TEST(Reader, ClosedReaderGivesNeutralValues) {
    const struct { const char *name, *text; void (*then)(XmlReader&); } cases[] = {
        {"null text", nullptr, [](XmlReader&) {}},
        {"closed after reading", "<a x='1'/>", [](XmlReader& r) { r.read(), r.close(), r.close(); }},
        {"reset to empty text", "<a/>", [](XmlReader& r) { r.read(), r.reset(""); }},
        {"reset to null text", "<a/>", [](XmlReader& r) { r.read(), r.reset(static_cast<const char*>(nullptr)); }},
        {"reset to a string starting with NUL", "<a/>", [](XmlReader& r) { r.reset(std::string("\0<a/>", 5)); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XmlReader r(c.text);
        c.then(r);
        EXPECT_EQ(describe(r) + std::to_string(movements(r)), "-1 0 0 0 0 000000" + std::string(17, '|') + "F0");
    }
    // The owned overload frees its argument; the default reader is closed.
    EXPECT_EQ(XmlReader().xmlCharToString(xmlStrdup(reinterpret_cast<const xmlChar*>("copied"))), "copied");
}

TEST(Reader, WalksElementAttributeTextAndEnd) {
    // quoteChar is '"' (34) whatever quote the text used; the version comes from the parser. Serialising
    // does not move the reader, or the next row would differ.
    const std::string expected[] = {"0 0 0 0 34 000000" + std::string(17, '|') + "F",
                                    "3 1 0 1 34 000001||a|a||||||1|1||t|<a x=\"1\">t</a>|||1.0|F",
                                    "3 3 1 0 34 100000||#text|#text|||t|||||||t|||1.0|tF"};
    XmlReader r("<a x='1'>t</a>");
    for (const std::string& node : expected) {
        EXPECT_EQ(describe(r), node);
        ASSERT_TRUE(r.read());
    }
    EXPECT_TRUE(r.nodeType() == XML_READER_TYPE_END_ELEMENT && !r.read() && r.state() == XML_TEXTREADER_MODE_EOF);
}

TEST(Reader, NavigationAndReset) {
    XmlReader r("<r><a k=\"v\"><x/><y>t</y></a><b><z/></b></r>");
    // nextSibling is offered by libxml2 only over trees; nextElement skips subtrees, then ends the parent.
    ASSERT_TRUE(r.read() && r.read() && !r.nextSibling() && r.nextElement() && r.nextElement());
    EXPECT_EQ(r.name() + std::to_string(r.nodeType()), "r15");
    r.close(); // reset() rewinds over the held text, also after close
    r.reset();
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_INITIAL);
    EXPECT_EQ(drain(r), 11U);
    r.reset();
    ASSERT_TRUE(r.read());
    r.reset("<" + r.name() + "2/>"); // the new text may come from the reader's own answer
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "r2");
    // The reader keeps its own copy of the text: ASan reports any read of the freed buffers.
    XmlReader fromChars(std::string("<chars>x</chars>").c_str());
    r.reset(std::string("<s>") + std::string(100, 'y') + "</s>");
    EXPECT_EQ(drain(fromChars), 3U);
    ASSERT_TRUE(r.read() && r.read());
    EXPECT_EQ(r.value(), std::string(100, 'y'));
}

TEST(Reader, BooleanValueIsOneOrTrueInAnyAsciiCase) {
    for (const std::string text : {"1", "true", "TRUE", "tRuE", "", " true", "true ", "0", "01", "truee", "-1",
                                   "\xc5\xa3rue"}) {
        XmlReader r("<v a=\"" + text + "\"/>");
        const bool expected = text == "1" || text.size() == 4; // the four-letter cases spell "true"
        bool out = !expected;
        ASSERT_TRUE(r.read() && r.moveToAttribute("a"));
        r.value(out);
        EXPECT_EQ(out, expected) << "'" << text << "'";
    }
}

TEST(Reader, MalformedInputEndsInTheErrorStateWithoutThrowing) {
    tarntest::QuietLibxml2 quiet;
    for (const std::string text : {"<a><b></a>", "<a><b/>", "<a>&nope;</a>", "<a>&amp</a>", "<a>&#xZZ;</a>",
                                   "<a>\xff\xfe</a>", "<a>\xc0\xaf</a>", "<a>\xe2\x82</a>", "<a><b x='1",
                                   "<?xml version=", "<a/><b/>", "<a x='1' x='2'/>", "</a>"}) {
        SCOPED_TRACE(text);
        XmlReader r(text);
        EXPECT_LT(drain(r), 10U);
        // libxml2 may walk what it built once more after an error; every call must stay safe.
        for (int i = 0; i < 4; ++i) {
            describe(r), movements(r);
            // At the document node libxml2 would leak its copy of the document.
            EXPECT_TRUE(r.nodeType() != XML_READER_TYPE_DOCUMENT || r.outerXml().empty());
        }
        EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_ERROR);
    }
}

TEST(Reader, EveryGetterAtEveryNodeAndAttributeFreesWhatItTakes) {
    XmlReader r("<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE r [<!ENTITY e 'ent'><!ATTLIST r d CDATA 'dflt'>]>"
                "<r xmlns:p='urn:p' xml:base='http://h/' xml:lang='en' x='1' p:y='2'>"
                "<!--c--><?pi d?><![CDATA[c]]>&e;<p:s xml:space='preserve'> <t p:y='3'>true</t></p:s></r>");
    std::string kinds;
    for (; r.read(); r.moveToElement()) {
        kinds += std::to_string(r.nodeType()) + (describe(r).empty() ? "!" : " ");
        for (bool more = r.firstAttribute(); more; more = r.nextAttribute())
            for (describe(r); r.readAttributeValue();)
                describe(r);
    }
    EXPECT_EQ(kinds, "10 1 8 7 4 5 1 14 1 3 15 15 15 ");
    r.reset();
    ASSERT_TRUE(r.read() && r.read());
    // Namespaces, inherited values and the DTD's default attribute are answered.
    EXPECT_EQ(r.baseUri() + " " + r.getAttribute("d") + " " + r.encoding() + " " + r.lang(), "http://h/ dflt UTF-8 en");
    EXPECT_EQ(r.getAttribute("y", "urn:p") + r.getAttribute("p:y") + r.lookupNamespace("p"), "22urn:p");
}

// name() and value() answer what xmlTextReaderName / xmlTextReaderValue allocate, at every node,
// attribute (namespace declarations and prefixed ones included) and attribute value node.
TEST(Reader, NameAndValueAsLibxml2GivesThem) {
    const char* const text = "<!DOCTYPE r [<!ENTITY e 'ent'>]><r xmlns='urn:d' xmlns:p='urn:p' x='1' p:y='a&e;'>"
                             "<!--c--><?pi d?><![CDATA[c]]>&e;<p:s> <t p:y='3'>t</t></p:s></r>";
    XmlReader r(text);
    xmlTextReaderPtr raw = xmlReaderForDoc(reinterpret_cast<const xmlChar*>(text), "", nullptr, 0);
    const auto owned = [](xmlChar* s) {
        const std::string copy = s != nullptr ? reinterpret_cast<const char*>(s) : "";
        xmlFree(s);
        return copy;
    };
    std::string seen;
    const auto same = [&] {
        EXPECT_EQ(owned(xmlTextReaderName(raw)), r.name());
        EXPECT_EQ(owned(xmlTextReaderValue(raw)), r.value());
        seen += r.name() + "=" + r.value() + " ";
    };
    while (r.read() && xmlTextReaderRead(raw) == 1) {
        same();
        for (int i = 0; r.moveToAttribute(i) && xmlTextReaderMoveToAttributeNo(raw, i) == 1; ++i) {
            same();
            if (r.readAttributeValue() && xmlTextReaderReadAttributeValue(raw) == 1)
                same();
        }
        r.moveToElement();
        xmlTextReaderMoveToElement(raw);
    }
    xmlFreeTextReader(raw);
    // (libxml2 shows an element's attributes on its end tag too.)
    const std::string rootAttributes = "xmlns=urn:d #text=urn:d xmlns:p=urn:p #text=urn:p x=1 #text=1 p:y=aent #text=a ";
    EXPECT_EQ(seen, "r= r= " + rootAttributes + "#comment=c pi=d #cdata-section=c e= p:s= #text=  t= p:y=3 #text=3 "
                    "#text=t t= p:y=3 #text=3 p:s= r= " + rootAttributes);
}

} // namespace
