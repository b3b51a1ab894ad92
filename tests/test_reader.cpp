// The pull reader: neutral values when closed, the node walk and navigation, the owned text,
// malformed and oversized input, and that every getter frees what libxml2 allocated.
#include <gtest/gtest.h>

#include <libxml/xmlreader.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "tarnxml/XmlReader.h"

namespace {

using tarn::XmlReader;

std::size_t drain(XmlReader& r)
{
    std::size_t nodes = 0;
    while (r.read())
        ++nodes;
    return nodes;
}

// Every query of the reader in one line: numbers, predicates as 0/1, then each text after a '|',
// then value(string&) and value(bool&). Also the leak walk: each call that makes libxml2 allocate.
std::string describe(XmlReader& r)
{
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

int movements(XmlReader& r)
{
    return r.read() + r.readAttributeValue() + r.nextElement() + r.nextSibling() + r.firstAttribute() +
           r.nextAttribute() + r.moveToElement() + r.moveToAttribute(0) + r.moveToAttribute("x") +
           r.moveToAttribute(static_cast<const char*>(nullptr));
}

TEST(ReaderClosed, EveryOperationGivesItsNeutralValue)
{
    const std::string closed = "-1 0 0 0 0 000000" + std::string(17, '|') + "F";
    const std::vector<std::pair<const char*, std::function<void(XmlReader&)>>> cases = {
        {"default", [](XmlReader&) {}},
        {"closed after reading", [](XmlReader& r) { r.reset("<a x='1'/>"); r.read(); r.close(); r.close(); }},
        {"reset to empty text", [](XmlReader& r) { r.reset("<a/>"); r.read(); r.reset(""); }},
        {"reset to null text", [](XmlReader& r) { r.reset("<a/>"); r.reset(static_cast<const char*>(nullptr)); }},
        {"reset to a string starting with NUL", [](XmlReader& r) { r.reset(std::string("\0<a/>", 5)); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        XmlReader r;
        c.second(r);
        EXPECT_EQ(describe(r), closed);
        EXPECT_EQ(movements(r), 0);
        EXPECT_EQ(r.state(), -1);
    }
    XmlReader nullText(static_cast<const char*>(nullptr)), emptyText(std::string{});
    EXPECT_EQ(describe(nullText), closed);
    EXPECT_EQ(describe(emptyText), closed);

    EXPECT_EQ(nullText.xmlCharToString(xmlStrdup(reinterpret_cast<const xmlChar*>("copied"))), "copied");
    EXPECT_EQ(nullText.xmlCharToString(static_cast<unsigned char*>(nullptr)), "");
    EXPECT_EQ(nullText.xmlCharToString(static_cast<const unsigned char*>(nullptr)), "");
    for (int result : {-2, -1, 0})
        EXPECT_FALSE(nullText.xmlIntToBool(result)) << result;
    EXPECT_TRUE(nullText.xmlIntToBool(1));
}

TEST(ReaderWalk, ElementAttributeTextAndEnd)
{
    XmlReader r("<a x='1'>t</a>");
    EXPECT_EQ(describe(r), "0 0 0 0 34 000000" + std::string(17, '|') + "F");  // open, before the first node
    ASSERT_TRUE(r.read());
    // quoteChar is '"' (34) whatever quote the text used; the version comes from the parser.
    EXPECT_EQ(describe(r), "3 1 0 1 34 000001||a|a||||||1|1||t|<a x=\"1\">t</a>|||1.0|F");
    EXPECT_EQ(r.getAttribute("missing"), "");
    EXPECT_EQ(r.lookupNamespace("unknown"), "");
    ASSERT_TRUE(r.read());
    EXPECT_EQ(describe(r), "3 3 1 0 34 100000||#text|#text|||t|||||||t|||1.0|tF");
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_END_ELEMENT);
    EXPECT_FALSE(r.read());
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
}

TEST(ReaderWalk, NodeKindsNamespacesAndAttributes)
{
    XmlReader r("<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE r [<!ENTITY e 'ent'>]>"
                "<p:r xmlns:p='urn:p' p:y='in-p' x='1' xml:lang='de'><!--c--><?pi d?><![CDATA[<x>]]>&e;<b/></p:r>");
    const std::vector<std::vector<std::string>> expected = {
        {"10", "r", ""}, {"1", "p:r", ""}, {"8", "#comment", "c"}, {"7", "pi", "d"},
        {"4", "#cdata-section", "<x>"}, {"5", "e", ""}, {"1", "b", ""}, {"15", "p:r", ""}};
    for (const auto& node : expected) {
        SCOPED_TRACE(node[1]);
        ASSERT_TRUE(r.read());
        EXPECT_EQ((std::vector<std::string>{std::to_string(r.nodeType()), r.name(), r.value()}), node);
        EXPECT_EQ(r.encoding(), "UTF-8");
        if (node[1] == "p:r" && node[0] == "1") {
            EXPECT_EQ(r.localName() + " " + r.prefix() + " " + r.namespaceURI() + " " + r.lang(), "r p urn:p de");
            EXPECT_EQ(r.getAttribute("y", "urn:p") + r.getAttribute("p:y") + r.getAttribute("x", nullptr), "in-pin-p1");
            std::string walk;
            for (bool more = r.firstAttribute(); more; more = r.nextAttribute())
                walk += r.name() + "=" + r.value() + (r.isNamespaceDecl() ? "(ns) " : " ");
            EXPECT_EQ(walk, "xmlns:p=urn:p(ns) p:y=in-p x=1 xml:lang=de ");
            ASSERT_TRUE(r.moveToAttribute(std::string("x\0ignored", 9)));  // text stops at NUL
            ASSERT_TRUE(r.readAttributeValue());
            EXPECT_EQ(r.nodeType() * 10 + r.value().size(), 31U);  // a text node holding "1"
            EXPECT_FALSE(r.moveToAttribute("missing"));
            ASSERT_TRUE(r.moveToAttribute(1));
            EXPECT_EQ(r.name(), "p:y");
            ASSERT_TRUE(r.moveToElement());
        }
    }
    EXPECT_FALSE(r.read());
}

TEST(ReaderWalk, NavigationAndSerialisation)
{
    XmlReader r("<r><a k=\"v\"><x/><y>t</y></a><b><z/></b></r>");
    ASSERT_TRUE(r.read() && r.read());
    EXPECT_EQ(r.innerXml(), "<x/><y>t</y>");
    EXPECT_EQ(r.outerXml(), "<a k=\"v\"><x/><y>t</y></a>");
    EXPECT_EQ(r.name(), "a");  // serialising did not move
    EXPECT_FALSE(r.nextSibling());  // libxml2 offers it only over trees
    ASSERT_TRUE(r.nextElement());
    EXPECT_EQ(r.name() + std::to_string(r.nodeType()), "b1");
    ASSERT_TRUE(r.nextElement());  // no sibling left: the parent's end
    EXPECT_EQ(r.name() + std::to_string(r.nodeType()), "r15");
    EXPECT_FALSE(r.nextElement());

    r.reset();  // rewinds over the held text
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_INITIAL);
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "r");
    r.close();
    r.reset();
    EXPECT_EQ(drain(r), 11U);
    r.reset();
    ASSERT_TRUE(r.read());
    r.reset("<" + r.name() + "2/>");  // the new text may come from the reader's own answer
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "r2");
}

TEST(ReaderWalk, KeepsItsOwnCopyOfTheText)
{
    std::unique_ptr<XmlReader> fromChars;
    XmlReader fromString;
    {
        std::string chars = "<chars>x</chars>", str = "<string>" + std::string(100, 'y') + "</string>";
        fromChars.reset(new XmlReader(chars.c_str()));
        fromString.reset(str);
        chars.assign(100, 'z');
        str.assign(300, 'z');
    }  // ASan reports any read of the caller's freed buffers
    EXPECT_EQ(drain(*fromChars), 3U);
    ASSERT_TRUE(fromString.read() && fromString.read());
    EXPECT_EQ(fromString.value(), std::string(100, 'y'));
}

TEST(ReaderValue, BooleanReading)
{
    const std::vector<std::pair<std::string, bool>> cases = {
        {"1", true},     {"true", true},  {"TRUE", true}, {"tRuE", true},  {"", false},   {" true", false},
        {"true ", false}, {"yes", false}, {"0", false},   {"2", false},    {"on", false}, {"false", false},
        {"01", false},   {"truee", false}, {"-1", false}, {"\xc5\xa3rue", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE("'" + c.first + "'");
        XmlReader r("<v a=\"" + c.first + "\"/>");
        ASSERT_TRUE(r.read() && r.moveToAttribute("a"));
        bool out = !c.second;
        r.value(out);
        EXPECT_EQ(out, c.second);
    }
}

TEST(ReaderMalformed, EndsInTheErrorStateWithoutThrowing)
{
    tarntest::QuietLibxml2 quiet;
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"unclosed tag", "<a><b></a>"},         {"unclosed root", "<a><b/>"},
        {"undefined entity", "<a>&nope;</a>"},   {"bad entity syntax", "<a>&amp</a>"},
        {"bad char reference", "<a>&#xZZ;</a>"}, {"invalid UTF-8", "<a>\xff\xfe</a>"},
        {"overlong UTF-8", "<a>\xc0\xaf</a>"},   {"truncated UTF-8", "<a>\xe2\x82</a>"},
        {"NUL in the middle", std::string("<a>x\0y</a>", 10)},
        {"truncated input", "<a><b x='1"},       {"truncated declaration", "<?xml version="},
        {"two roots", "<a/><b/>"},               {"duplicate attribute", "<a x='1' x='2'/>"},
        {"lone end tag", "</a>"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        XmlReader r;
        ASSERT_NO_THROW(r.reset(c.second));
        EXPECT_LT(drain(r), 10U);
        EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_ERROR);
        // libxml2 may walk what it built once more after an error; every call must stay safe.
        for (int i = 0; i < 4; ++i) {
            ASSERT_NO_THROW(describe(r) + std::to_string(movements(r)));
            if (r.nodeType() == XML_READER_TYPE_DOCUMENT) {
                EXPECT_EQ(r.outerXml(), "");  // libxml2 would leak its copy of the document
            }
        }
        EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_ERROR);
    }
}

TEST(ReaderMalformed, DeepNestingAndHugeTextEndCleanly)
{
    tarntest::QuietLibxml2 quiet;
    const std::size_t levels = 100000, huge = 50U << 20;
    std::string deep;
    for (std::size_t i = 0; i < levels; ++i)
        deep += "<e>";
    for (std::size_t i = 0; i < levels; ++i)
        deep += "</e>";
    const std::vector<std::string> docs = {deep, "<a>" + std::string(huge, 'x') + "</a>"};
    deep.clear();
    for (const std::string& doc : docs) {
        SCOPED_TRACE(doc.size());
        XmlReader r(doc);
        std::size_t nodes = 0, longest = 0;
        while (r.read()) {
            ++nodes;
            std::string value;
            r.value(value);
            longest = std::max(longest, value.size());
        }
        const int state = r.state();
        // Either libxml2's limits stopped it with an error, or it reached the end of everything.
        EXPECT_TRUE(state == XML_TEXTREADER_MODE_ERROR ||
                    (state == XML_TEXTREADER_MODE_EOF && (nodes == 2 * levels || longest == huge)))
            << state << " " << nodes << " " << longest;
    }
}

TEST(ReaderLeaks, EveryGetterAtEveryNodeAndAttribute)
{
    XmlReader r("<?xml version='1.0'?><!DOCTYPE r [<!ENTITY e 'ent'><!ATTLIST r d CDATA 'dflt'>]>"
                "<r xmlns:p='urn:p' xml:base='http://h/' xml:lang='en' x='1' p:y='2'>"
                "<!--c--><?pi d?><![CDATA[c]]>&e;<p:s xml:space='preserve'> <t p:y='3'>true</t></p:s></r>");
    std::size_t visited = 0;
    while (r.read()) {
        visited += !describe(r).empty();
        for (bool more = r.firstAttribute(); more; more = r.nextAttribute()) {
            describe(r);
            while (r.readAttributeValue())
                describe(r);
        }
        r.moveToElement();
    }
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
    EXPECT_EQ(visited, 13U);
    r.reset();
    ASSERT_TRUE(r.read() && r.read());
    EXPECT_EQ(r.baseUri() + " " + r.getAttribute("d"), "http://h/ dflt");  // default from the DTD
}

} // namespace
