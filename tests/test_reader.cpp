// The pull reader: neutral values when closed, the node walk and navigation, the owned text,
// malformed and oversized input, and that every getter frees what libxml2 allocated.
#include <gtest/gtest.h>
#include <libxml/xmlreader.h>

#include <functional>
#include <memory>

#include "TestSupport.h"
#include "tarnxml/XmlReader.h"

namespace {

using tarn::XmlReader;

std::size_t drain(XmlReader& r) {
    std::size_t nodes = 0;
    while (r.read())
        ++nodes;
    return nodes;
}

// Every query of the reader in one line: numbers, predicates as 0/1, then each text after a '|',
// then value(string&) and value(bool&). Also the leak walk: each call that makes libxml2 allocate.
std::string describe(XmlReader& r) {
    std::string out = std::to_string(r.state()) + " " + std::to_string(r.nodeType()) + " " +
                      std::to_string(r.depth()) + " " + std::to_string(r.attributeCount()) + " " +
                      std::to_string(static_cast<int>(r.quoteChar())) + " ";
    for (bool b : {r.hasValue(), r.isDefault(), r.isEmpty(), r.isNamespaceDecl(), r.isValid(), r.hasAttributes()})
        out += b ? '1' : '0';
    const char* const noPrefix = nullptr;
    for (const std::string& t :
         {r.baseUri(), r.localName(), r.name(), r.namespaceURI(), r.prefix(), r.value(), r.lookupNamespace("p"),
          r.lookupNamespace(noPrefix), r.getAttribute(0), r.getAttribute(std::string("x")),
          r.getAttribute("y", "urn:p"), r.innerXml(), r.outerXml(), r.encoding(), r.lang(), r.xmlVersion()})
        out += "|" + t;
    std::string text = "stale";
    r.value(text);
    bool flag = true;
    r.value(flag);
    return out + "|" + text + (flag ? "T" : "F");
}

int movements(XmlReader& r) {
    return r.read() + r.readAttributeValue() + r.nextElement() + r.nextSibling() + r.firstAttribute() +
           r.nextAttribute() + r.moveToElement() + r.moveToAttribute(0) + r.moveToAttribute("x") +
           r.moveToAttribute(static_cast<const char*>(nullptr));
}

TEST(Reader, ClosedReaderGivesNeutralValues) {
    const std::pair<const char*, std::function<void(XmlReader&)>> cases[] = {
        {"default", [](XmlReader&) {}},
        {"closed after reading", [](XmlReader& r) { r.reset("<a x='1'/>"), r.read(), r.close(), r.close(); }},
        {"reset to empty text", [](XmlReader& r) { r.reset("<a/>"), r.read(), r.reset(""); }},
        {"reset to null text", [](XmlReader& r) { r.reset("<a/>"), r.reset(static_cast<const char*>(nullptr)); }},
        {"reset to a string starting with NUL", [](XmlReader& r) { r.reset(std::string("\0<a/>", 5)); }},
    };
    const std::string closed = "-1 0 0 0 0 000000" + std::string(17, '|') + "F";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        XmlReader r;
        c.second(r);
        EXPECT_EQ(describe(r), closed);
        EXPECT_EQ(movements(r), 0);
        EXPECT_EQ(r.state(), -1);
    }
    XmlReader nullText(static_cast<const char*>(nullptr)), emptyText(std::string{});
    EXPECT_EQ(describe(nullText) + describe(emptyText), closed + closed);
    // The owned overload frees its argument.
    EXPECT_EQ(XmlReader().xmlCharToString(xmlStrdup(reinterpret_cast<const xmlChar*>("copied"))), "copied");
    EXPECT_EQ(XmlReader().xmlCharToString(static_cast<unsigned char*>(nullptr)), "");
}

TEST(Reader, WalksElementAttributeTextAndEnd) {
    // quoteChar is '"' (34) whatever quote the text used; the version comes from the parser.
    const std::string expected[] = {"0 0 0 0 34 000000" + std::string(17, '|') + "F",
                                    "3 1 0 1 34 000001||a|a||||||1|1||t|<a x=\"1\">t</a>|||1.0|F",
                                    "3 3 1 0 34 100000||#text|#text|||t|||||||t|||1.0|tF"};
    XmlReader r("<a x='1'>t</a>");
    for (const std::string& node : expected) {
        EXPECT_EQ(describe(r), node);
        ASSERT_TRUE(r.read());
    }
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_END_ELEMENT);
    EXPECT_FALSE(r.read());
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
}

TEST(Reader, NavigationSerialisationAndReset) {
    XmlReader r("<r><a k=\"v\"><x/><y>t</y></a><b><z/></b></r>");
    ASSERT_TRUE(r.read() && r.read());
    // Serialising does not move; nextSibling is offered by libxml2 only over trees.
    EXPECT_EQ(r.innerXml() + "|" + r.outerXml() + "|" + r.name(), "<x/><y>t</y>|<a k=\"v\"><x/><y>t</y></a>|a");
    EXPECT_FALSE(r.nextSibling());
    ASSERT_TRUE(r.nextElement());
    EXPECT_EQ(r.name() + std::to_string(r.nodeType()), "b1");
    ASSERT_TRUE(r.nextElement()); // no sibling left: the parent's end
    EXPECT_EQ(r.name() + std::to_string(r.nodeType()), "r15");
    EXPECT_FALSE(r.nextElement());
    r.reset(); // rewinds over the held text, also after close
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_INITIAL);
    r.close();
    r.reset();
    EXPECT_EQ(drain(r), 11U);
    r.reset();
    ASSERT_TRUE(r.read());
    r.reset("<" + r.name() + "2/>"); // the new text may come from the reader's own answer
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "r2");
    // The reader keeps its own copy of the text: ASan reports any read of the freed buffers.
    std::unique_ptr<XmlReader> fromChars(new XmlReader(std::string("<chars>x</chars>").c_str()));
    r.reset(std::string("<s>") + std::string(100, 'y') + "</s>");
    EXPECT_EQ(drain(*fromChars), 3U);
    ASSERT_TRUE(r.read() && r.read());
    EXPECT_EQ(r.value(), std::string(100, 'y'));
}

TEST(Reader, BooleanValue) {
    const std::pair<std::string, bool> cases[] = {
        {"1", true},     {"true", true},    {"TRUE", true}, {"tRuE", true}, {"", false},   {" true", false},
        {"true ", false}, {"yes", false},   {"0", false},   {"2", false},   {"on", false}, {"false", false},
        {"01", false},   {"truee", false}, {"-1", false},  {"\xc5\xa3rue", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE("'" + c.first + "'");
        XmlReader r("<v a=\"" + c.first + "\"/>");
        ASSERT_TRUE(r.read() && r.moveToAttribute("a"));
        bool out = !c.second;
        r.value(out);
        EXPECT_EQ(out, c.second);
    }
}

TEST(Reader, MalformedInputEndsInTheErrorStateWithoutThrowing) {
    tarntest::QuietLibxml2 quiet;
    const std::string cases[] = {
        "<a><b></a>", "<a><b/>", "<a>&nope;</a>", "<a>&amp</a>", "<a>&#xZZ;</a>", "<a>\xff\xfe</a>",
        "<a>\xc0\xaf</a>", "<a>\xe2\x82</a>", std::string("<a>x\0y</a>", 10), "<a><b x='1", "<?xml version=",
        "<a/><b/>", "<a x='1' x='2'/>", "</a>"};
    for (const std::string& text : cases) {
        SCOPED_TRACE(text);
        XmlReader r;
        ASSERT_NO_THROW(r.reset(text));
        EXPECT_LT(drain(r), 10U);
        EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_ERROR);
        // libxml2 may walk what it built once more after an error; every call must stay safe.
        for (int i = 0; i < 4; ++i) {
            ASSERT_NO_THROW(describe(r) + std::to_string(movements(r)));
            // At the document node libxml2 would leak its copy of the document.
            EXPECT_TRUE(r.nodeType() != XML_READER_TYPE_DOCUMENT || r.outerXml().empty());
        }
        EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_ERROR);
    }
}

TEST(Reader, DeepNestingAndHugeTextEndCleanly) {
    tarntest::QuietLibxml2 quiet;
    const std::size_t levels = 100000, huge = 50U << 20;
    std::string open, close;
    for (std::size_t i = 0; i < levels; ++i)
        open += "<e>", close += "</e>";
    for (const std::string& doc : {open + close, "<a>" + std::string(huge, 'x') + "</a>"}) {
        SCOPED_TRACE(doc.size());
        XmlReader r(doc);
        std::size_t nodes = 0, longest = 0;
        for (std::string value; r.read(); ++nodes)
            r.value(value), longest = std::max(longest, value.size());
        // Either libxml2's limits stopped it with an error, or it reached the end of everything.
        EXPECT_TRUE(r.state() == XML_TEXTREADER_MODE_ERROR ||
                    (r.state() == XML_TEXTREADER_MODE_EOF && (nodes == 2 * levels || longest == huge)))
            << r.state() << " " << nodes << " " << longest;
    }
}

TEST(Reader, EveryGetterAtEveryNodeAndAttributeFreesWhatItTakes) {
    XmlReader r("<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE r [<!ENTITY e 'ent'><!ATTLIST r d CDATA 'dflt'>]>"
                "<r xmlns:p='urn:p' xml:base='http://h/' xml:lang='en' x='1' p:y='2'>"
                "<!--c--><?pi d?><![CDATA[c]]>&e;<p:s xml:space='preserve'> <t p:y='3'>true</t></p:s></r>");
    std::string kinds;
    while (r.read()) {
        kinds += std::to_string(r.nodeType()) + (describe(r).empty() ? "!" : " ");
        for (bool more = r.firstAttribute(); more; more = r.nextAttribute()) {
            describe(r);
            while (r.readAttributeValue())
                describe(r);
        }
        r.moveToElement();
    }
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
    EXPECT_EQ(kinds, "10 1 8 7 4 5 1 14 1 3 15 15 15 ");
    r.reset();
    ASSERT_TRUE(r.read() && r.read());
    // Namespaces, inherited values and the DTD's default attribute are answered.
    EXPECT_EQ(r.baseUri() + " " + r.getAttribute("d") + " " + r.encoding() + " " + r.lang(), "http://h/ dflt UTF-8 en");
    EXPECT_EQ(r.getAttribute("y", "urn:p") + r.getAttribute("p:y") + r.lookupNamespace("p"), "22urn:p");
}

} // namespace
