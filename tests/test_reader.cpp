// The pull reader: node walk, navigation, neutral values for a closed reader and for libxml2's
// error results, the owned text, malformed and oversized input.
#include <gtest/gtest.h>

#include <libxml/xmlreader.h>

#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "tarnxml/XmlReader.h"

namespace {

using tarn::XmlReader;

// Reads to the end (or the error); returns how many nodes were visited.
std::size_t drain(XmlReader& reader)
{
    std::size_t nodes = 0;
    while (reader.read())
        ++nodes;
    return nodes;
}

// Calls every const getter and predicate once; used to walk every getter path under LSan.
void touchEveryQuery(const XmlReader& reader)
{
    (void)reader.hasValue();
    (void)reader.isDefault();
    (void)reader.isEmpty();
    (void)reader.isNamespaceDecl();
    (void)reader.isValid();
    (void)reader.hasAttributes();
    (void)reader.state();
    (void)reader.nodeType();
    (void)reader.depth();
    (void)reader.attributeCount();
    (void)reader.quoteChar();
    (void)reader.baseUri();
    (void)reader.localName();
    (void)reader.name();
    (void)reader.namespaceURI();
    (void)reader.prefix();
    (void)reader.value();
    (void)reader.lookupNamespace("p");
    (void)reader.lookupNamespace(std::string());
    (void)reader.lookupNamespace(static_cast<const char*>(nullptr));
    (void)reader.getAttribute(0);
    (void)reader.getAttribute(-1);
    (void)reader.getAttribute("x");
    (void)reader.getAttribute(std::string("p:y"));
    (void)reader.getAttribute(static_cast<const char*>(nullptr));
    (void)reader.getAttribute("y", "urn:p");
    (void)reader.getAttribute(std::string("y"), std::string("urn:p"));
    (void)reader.getAttribute("y", nullptr);
    (void)reader.getAttribute(nullptr, "urn:p");
    (void)reader.encoding();
    (void)reader.lang();
    (void)reader.xmlVersion();
    std::string text = "stale";
    reader.value(text);
    bool flag = true;
    reader.value(flag);
}

// ---------------------------------------------------------------------------------------------
// Closed readers

struct ClosedCase {
    const char* label;
    std::function<void(std::unique_ptr<XmlReader>&)> make;
};

TEST(ReaderClosed, EveryOperationGivesItsNeutralValue)
{
    const std::vector<ClosedCase> cases = {
        {"default", [](std::unique_ptr<XmlReader>& r) { r.reset(new XmlReader()); }},
        {"empty char text", [](std::unique_ptr<XmlReader>& r) { r.reset(new XmlReader("")); }},
        {"empty std::string", [](std::unique_ptr<XmlReader>& r) { r.reset(new XmlReader(std::string())); }},
        {"null char text", [](std::unique_ptr<XmlReader>& r) { r.reset(new XmlReader(static_cast<const char*>(nullptr))); }},
        {"string starting with NUL",
         [](std::unique_ptr<XmlReader>& r) { r.reset(new XmlReader(std::string("\0<a/>", 5))); }},
        {"closed after reading",
         [](std::unique_ptr<XmlReader>& r) {
             r.reset(new XmlReader("<a x='1'><b/></a>"));
             ASSERT_TRUE(r->read());
             r->close();
         }},
        {"closed twice",
         [](std::unique_ptr<XmlReader>& r) {
             r.reset(new XmlReader("<a/>"));
             r->close();
             r->close();
         }},
        {"reset to empty text",
         [](std::unique_ptr<XmlReader>& r) {
             r.reset(new XmlReader("<a/>"));
             ASSERT_TRUE(r->read());
             r->reset("");
         }},
        {"reset to null text",
         [](std::unique_ptr<XmlReader>& r) {
             r.reset(new XmlReader("<a/>"));
             r->reset(static_cast<const char*>(nullptr));
         }},
        {"reset to empty std::string",
         [](std::unique_ptr<XmlReader>& r) {
             r.reset(new XmlReader("<a/>"));
             r->reset(std::string());
         }},
    };
    for (const ClosedCase& c : cases) {
        SCOPED_TRACE(c.label);
        std::unique_ptr<XmlReader> holder;
        ASSERT_NO_THROW(c.make(holder));
        XmlReader& r = *holder;

        EXPECT_EQ(r.state(), -1);
        EXPECT_EQ(r.nodeType(), 0);
        EXPECT_EQ(r.depth(), 0);
        EXPECT_EQ(r.attributeCount(), 0);
        EXPECT_EQ(r.quoteChar(), '\0');

        EXPECT_FALSE(r.hasValue());
        EXPECT_FALSE(r.isDefault());
        EXPECT_FALSE(r.isEmpty());
        EXPECT_FALSE(r.isNamespaceDecl());
        EXPECT_FALSE(r.isValid());
        EXPECT_FALSE(r.hasAttributes());

        const std::vector<std::pair<const char*, std::string>> texts = {
            {"baseUri", r.baseUri()},
            {"localName", r.localName()},
            {"name", r.name()},
            {"namespaceURI", r.namespaceURI()},
            {"prefix", r.prefix()},
            {"value", r.value()},
            {"lookupNamespace", r.lookupNamespace("p")},
            {"lookupNamespace null", r.lookupNamespace(static_cast<const char*>(nullptr))},
            {"getAttribute index", r.getAttribute(0)},
            {"getAttribute name", r.getAttribute("x")},
            {"getAttribute ns", r.getAttribute("x", "urn:p")},
            {"innerXml", r.innerXml()},
            {"outerXml", r.outerXml()},
            {"encoding", r.encoding()},
            {"lang", r.lang()},
            {"xmlVersion", r.xmlVersion()},
        };
        for (const auto& text : texts)
            EXPECT_EQ(text.second, "") << text.first;

        std::string out = "stale";
        r.value(out);
        EXPECT_EQ(out, "");
        bool flag = true;
        r.value(flag);
        EXPECT_FALSE(flag);

        // Movements last: on a closed reader they must not open anything either.
        EXPECT_FALSE(r.read());
        EXPECT_FALSE(r.readAttributeValue());
        EXPECT_FALSE(r.nextElement());
        EXPECT_FALSE(r.nextSibling());
        EXPECT_FALSE(r.firstAttribute());
        EXPECT_FALSE(r.nextAttribute());
        EXPECT_FALSE(r.moveToElement());
        EXPECT_FALSE(r.moveToAttribute(0));
        EXPECT_FALSE(r.moveToAttribute("x"));
        EXPECT_FALSE(r.moveToAttribute(std::string("x")));
        EXPECT_FALSE(r.moveToAttribute(static_cast<const char*>(nullptr)));
        EXPECT_EQ(r.state(), -1);
    }
}

TEST(ReaderClosed, ConversionMembersFoldNullAndErrorResults)
{
    const XmlReader r;
    EXPECT_EQ(r.xmlCharToString(static_cast<unsigned char*>(nullptr)), "");
    EXPECT_EQ(r.xmlCharToString(static_cast<const unsigned char*>(nullptr)), "");
    // An owned string is copied and freed (LSan reports it otherwise).
    EXPECT_EQ(r.xmlCharToString(xmlStrdup(reinterpret_cast<const xmlChar*>("caf\xc3\xa9"))), "caf\xc3\xa9");
    const xmlChar kept[] = "kept";
    EXPECT_EQ(r.xmlCharToString(static_cast<const unsigned char*>(kept)), "kept");

    const std::vector<std::pair<int, bool>> results = {{-1, false}, {0, false}, {1, true}, {2, true}, {-2147483647 - 1, false}};
    for (const auto& result : results) {
        SCOPED_TRACE(result.first);
        EXPECT_EQ(r.xmlIntToBool(result.first), result.second);
    }
}

// ---------------------------------------------------------------------------------------------
// Walking a document

TEST(ReaderWalk, SmallElementWithAttributeAndText)
{
    XmlReader r("<a x='1'>t</a>");
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_INITIAL);
    EXPECT_EQ(r.nodeType(), 0);
    EXPECT_EQ(r.xmlVersion(), "");

    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_ELEMENT);
    EXPECT_EQ(r.name(), "a");
    EXPECT_EQ(r.depth(), 0);
    EXPECT_EQ(r.attributeCount(), 1);
    EXPECT_TRUE(r.hasAttributes());
    EXPECT_EQ(r.getAttribute("x"), "1");
    EXPECT_EQ(r.getAttribute(0), "1");
    EXPECT_EQ(r.quoteChar(), '"');  // libxml2 reports '"' whatever quote the text used
    EXPECT_FALSE(r.isEmpty());
    EXPECT_FALSE(r.hasValue());
    EXPECT_EQ(r.value(), "");
    EXPECT_EQ(r.xmlVersion(), "1.0");
    EXPECT_EQ(r.baseUri(), "");
    EXPECT_EQ(r.encoding(), "");

    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_TEXT);
    EXPECT_EQ(r.name(), "#text");
    EXPECT_EQ(r.depth(), 1);
    EXPECT_TRUE(r.hasValue());
    EXPECT_EQ(r.value(), "t");

    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_END_ELEMENT);
    EXPECT_EQ(r.name(), "a");

    EXPECT_FALSE(r.read());
    EXPECT_NE(r.state(), XML_TEXTREADER_MODE_ERROR);
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
    EXPECT_EQ(r.nodeType(), 0);
    EXPECT_FALSE(r.read());
}

struct Visit {
    int type;
    std::string name;
    std::string value;
    int depth;
};

TEST(ReaderWalk, EveryKindOfNodeReportsTypeNameValueAndDepth)
{
    const std::string doc =
        "<?xml version='1.0' encoding='UTF-8'?>\n"
        "<!DOCTYPE r [<!ENTITY e 'ent'>]>"
        "<r xml:lang='de'><!--c--><?pi data?><![CDATA[<x>]]>&e;<s xml:space='preserve'> </s><b/></r>";
    const std::vector<Visit> expected = {
        {XML_READER_TYPE_DOCUMENT_TYPE, "r", "", 0},
        {XML_READER_TYPE_ELEMENT, "r", "", 0},
        {XML_READER_TYPE_COMMENT, "#comment", "c", 1},
        {XML_READER_TYPE_PROCESSING_INSTRUCTION, "pi", "data", 1},
        {XML_READER_TYPE_CDATA, "#cdata-section", "<x>", 1},
        {XML_READER_TYPE_ENTITY_REFERENCE, "e", "", 1},
        {XML_READER_TYPE_ELEMENT, "s", "", 1},
        {XML_READER_TYPE_SIGNIFICANT_WHITESPACE, "#text", " ", 2},
        {XML_READER_TYPE_END_ELEMENT, "s", "", 1},
        {XML_READER_TYPE_ELEMENT, "b", "", 1},
        {XML_READER_TYPE_END_ELEMENT, "r", "", 0},
    };
    XmlReader r(doc);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(r.read());
        EXPECT_EQ(r.nodeType(), expected[i].type);
        EXPECT_EQ(r.name(), expected[i].name);
        EXPECT_EQ(r.value(), expected[i].value);
        EXPECT_EQ(r.depth(), expected[i].depth);
        EXPECT_EQ(r.lang(), r.nodeType() == XML_READER_TYPE_DOCUMENT_TYPE ? "" : "de");
        EXPECT_EQ(r.encoding(), "UTF-8");
        EXPECT_EQ(r.isEmpty(), expected[i].name == "b");
    }
    EXPECT_FALSE(r.read());
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
}

TEST(ReaderWalk, NamespacesPrefixesAndAttributeLookup)
{
    XmlReader r("<p:a xmlns:p='urn:p' xmlns='urn:d' p:y='in-p' z='plain'><c/></p:a>");
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "p:a");
    EXPECT_EQ(r.localName(), "a");
    EXPECT_EQ(r.prefix(), "p");
    EXPECT_EQ(r.namespaceURI(), "urn:p");
    EXPECT_EQ(r.lookupNamespace("p"), "urn:p");
    EXPECT_EQ(r.lookupNamespace(std::string("p")), "urn:p");
    EXPECT_EQ(r.lookupNamespace(static_cast<const char*>(nullptr)), "urn:d");
    EXPECT_EQ(r.lookupNamespace("unknown"), "");
    EXPECT_EQ(r.attributeCount(), 4);

    EXPECT_EQ(r.getAttribute("y", "urn:p"), "in-p");
    EXPECT_EQ(r.getAttribute(std::string("y"), std::string("urn:p")), "in-p");
    EXPECT_EQ(r.getAttribute("p:y"), "in-p");
    EXPECT_EQ(r.getAttribute("z", nullptr), "plain");
    EXPECT_EQ(r.getAttribute("y", "urn:other"), "");
    EXPECT_EQ(r.getAttribute("missing"), "");
    EXPECT_EQ(r.getAttribute(std::string("missing")), "");
    EXPECT_EQ(r.getAttribute(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(r.getAttribute(nullptr, "urn:p"), "");
    EXPECT_EQ(r.getAttribute(99), "");

    // The attribute walk: namespace declarations come first and say so.
    struct Attr {
        std::string name;
        std::string value;
        bool nsDecl;
    };
    const std::vector<Attr> attrs = {
        {"xmlns:p", "urn:p", true}, {"xmlns", "urn:d", true}, {"p:y", "in-p", false}, {"z", "plain", false}};
    ASSERT_TRUE(r.firstAttribute());
    for (std::size_t i = 0; i < attrs.size(); ++i) {
        SCOPED_TRACE(i);
        if (i > 0) {
            ASSERT_TRUE(r.nextAttribute());
        }
        EXPECT_EQ(r.nodeType(), XML_READER_TYPE_ATTRIBUTE);
        EXPECT_EQ(r.name(), attrs[i].name);
        EXPECT_EQ(r.value(), attrs[i].value);
        EXPECT_EQ(r.isNamespaceDecl(), attrs[i].nsDecl);
        EXPECT_TRUE(r.hasValue());
        EXPECT_FALSE(r.isDefault());
        EXPECT_EQ(r.depth(), 1);
    }
    EXPECT_FALSE(r.nextAttribute());
    EXPECT_EQ(r.name(), "z");

    // readAttributeValue steps into the attribute's text.
    ASSERT_TRUE(r.readAttributeValue());
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_TEXT);
    EXPECT_EQ(r.value(), "plain");
    EXPECT_FALSE(r.readAttributeValue());

    ASSERT_TRUE(r.moveToAttribute(2));
    EXPECT_EQ(r.name(), "p:y");
    ASSERT_TRUE(r.moveToAttribute("z"));
    EXPECT_EQ(r.value(), "plain");
    ASSERT_TRUE(r.moveToAttribute(std::string("xmlns")));
    EXPECT_EQ(r.value(), "urn:d");
    EXPECT_FALSE(r.moveToAttribute("missing"));
    EXPECT_EQ(r.name(), "xmlns");  // a failed move by name stays put
    EXPECT_FALSE(r.moveToAttribute(4));

    ASSERT_TRUE(r.moveToAttribute(0));
    ASSERT_TRUE(r.moveToElement());
    EXPECT_EQ(r.name(), "p:a");
    EXPECT_FALSE(r.moveToElement());  // already on the element

    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "c");
    EXPECT_EQ(r.namespaceURI(), "urn:d");
    EXPECT_EQ(r.prefix(), "");
    EXPECT_FALSE(r.hasAttributes());
    EXPECT_FALSE(r.firstAttribute());
    EXPECT_FALSE(r.readAttributeValue());
}

TEST(ReaderWalk, TextOverloadsStopAtTheFirstNul)
{
    const std::string withNul("<a x='1'/>\0<b/>", 15);
    XmlReader r(withNul);
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "a");
    EXPECT_FALSE(r.read());
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);

    r.reset();
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.getAttribute(std::string("x\0junk", 6)), "1");
    EXPECT_TRUE(r.moveToAttribute(std::string("x\0junk", 6)));
    EXPECT_TRUE(r.moveToElement());
    EXPECT_EQ(r.lookupNamespace(std::string("xml\0p", 5)), "http://www.w3.org/XML/1998/namespace");
}

TEST(ReaderWalk, NextElementSkipsTheSubtree)
{
    XmlReader r("<r><a><x/><y>t</y></a><b><z/></b></r>");
    ASSERT_TRUE(r.read());  // r
    ASSERT_TRUE(r.read());  // a
    ASSERT_EQ(r.name(), "a");
    ASSERT_TRUE(r.nextElement());
    EXPECT_EQ(r.name(), "b");
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_ELEMENT);
    ASSERT_TRUE(r.nextElement());  // b has no following sibling: its parent's end
    EXPECT_EQ(r.name(), "r");
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_END_ELEMENT);
    EXPECT_FALSE(r.nextElement());
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
    EXPECT_FALSE(r.read());
}

TEST(ReaderWalk, NextSiblingIsNotAvailableOverText)
{
    XmlReader r("<r><a/><b/></r>");
    ASSERT_TRUE(r.read());
    ASSERT_TRUE(r.read());
    EXPECT_FALSE(r.nextSibling());
    EXPECT_NE(r.state(), -1);
}

TEST(ReaderWalk, InnerAndOuterXmlDoNotMove)
{
    XmlReader r("<r><a k=\"v\"><b>t</b><c/></a><d/></r>");
    ASSERT_TRUE(r.read());
    ASSERT_TRUE(r.read());
    ASSERT_EQ(r.name(), "a");
    EXPECT_EQ(r.innerXml(), "<b>t</b><c/>");
    EXPECT_EQ(r.outerXml(), "<a k=\"v\"><b>t</b><c/></a>");
    EXPECT_EQ(r.name(), "a");
    EXPECT_EQ(r.nodeType(), XML_READER_TYPE_ELEMENT);
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "b");
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.innerXml(), "");  // a text node has no content
    EXPECT_EQ(r.outerXml(), "t");
    EXPECT_EQ(r.value(), "t");
}

// ---------------------------------------------------------------------------------------------
// Typed values

TEST(ReaderValue, BooleanReading)
{
    const std::vector<std::pair<std::string, bool>> cases = {
        {"1", true},      {"true", true},    {"TRUE", true},   {"tRuE", true},  {"", false},
        {" true", false}, {"true ", false},  {"yes", false},   {"0", false},    {"2", false},
        {"false", false}, {"on", false},     {"01", false},    {"1 ", false},   {"truee", false},
        {"tru", false},   {"-1", false},     {"T", false},     {"\xc5\xa3rue", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("'" + c.first + "'");
        XmlReader r("<v a=\"" + c.first + "\"/>");
        ASSERT_TRUE(r.read());
        ASSERT_TRUE(r.moveToAttribute("a"));
        bool out = !c.second;
        r.value(out);
        EXPECT_EQ(out, c.second);
    }
}

TEST(ReaderValue, StringOutReceivesTheValueAndDropsItsOldContent)
{
    XmlReader r("<v>payload that is longer than any small string buffer</v>");
    ASSERT_TRUE(r.read());
    std::string out = "previous content";
    r.value(out);  // element: no value
    EXPECT_EQ(out, "");
    ASSERT_TRUE(r.read());
    out = "previous content";
    r.value(out);
    EXPECT_EQ(out, "payload that is longer than any small string buffer");
}

// ---------------------------------------------------------------------------------------------
// Lifecycle

TEST(ReaderLifecycle, ResetAndCloseRewindToTheFirstNode)
{
    XmlReader r("<r><a/><b/></r>");
    ASSERT_TRUE(r.read());
    ASSERT_TRUE(r.read());
    ASSERT_EQ(r.name(), "a");

    r.reset();
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_INITIAL);
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "r");
    ASSERT_TRUE(r.read());

    r.close();
    EXPECT_EQ(r.state(), -1);
    r.reset();
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "r");
    EXPECT_EQ(drain(r), 3U);
    r.reset();
    EXPECT_EQ(drain(r), 4U);
}

TEST(ReaderLifecycle, ResetWithNewTextReadsTheNewDocument)
{
    XmlReader r;
    const std::vector<std::string> docs = {"<first/>", "<second><x/></second>", "<third>t</third>"};
    for (const std::string& doc : docs) {
        SCOPED_TRACE(doc);
        r.reset(doc);
        ASSERT_TRUE(r.read());
        EXPECT_EQ(r.outerXml(), doc);
    }
    r.reset("<fourth/>");
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "fourth");
    // From inside the reader's own answer: the new text is copied before the old one goes.
    r.reset("<" + r.name() + "-again/>");
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "fourth-again");
}

TEST(ReaderLifecycle, TheReaderKeepsItsOwnCopyOfTheText)
{
    // The caller's buffers are overwritten and freed before the reader reads: ASan reports any
    // read of them.
    std::unique_ptr<XmlReader> fromChars;
    std::unique_ptr<XmlReader> fromString;
    XmlReader resetOne;
    {
        std::vector<char> chars(std::begin("<chars><in>x</in></chars>"), std::end("<chars><in>x</in></chars>"));
        std::string str = "<string>" + std::string(100, 'y') + "</string>";
        fromChars.reset(new XmlReader(chars.data()));
        fromString.reset(new XmlReader(str));
        resetOne.reset(str);
        std::fill(chars.begin(), chars.end(), 'z');
        str.assign(200, 'z');
    }
    EXPECT_EQ(drain(*fromChars), 5U);
    ASSERT_TRUE(fromString->read());
    EXPECT_EQ(fromString->name(), "string");
    ASSERT_TRUE(resetOne.read());
    EXPECT_EQ(resetOne.name(), "string");
    ASSERT_TRUE(resetOne.read());
    EXPECT_EQ(resetOne.value(), std::string(100, 'y'));
}

// ---------------------------------------------------------------------------------------------
// Malformed and oversized input

TEST(ReaderMalformed, EndsInTheErrorStateWithoutThrowing)
{
    tarntest::QuietLibxml2 quiet;
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"unclosed tag", "<a><b></a>"},
        {"unclosed root", "<a><b/>"},
        {"undefined entity", "<a>&nope;</a>"},
        {"bad entity syntax", "<a>&amp</a>"},
        {"bad character reference", "<a>&#xZZ;</a>"},
        {"invalid UTF-8", "<a>\xff\xfe</a>"},
        {"overlong UTF-8", "<a>\xc0\xaf</a>"},
        {"truncated UTF-8", "<a>\xe2\x82</a>"},
        {"NUL in the middle", std::string("<a>x\0y</a>", 10)},
        {"truncated input", "<a><b x='1"},
        {"truncated declaration", "<?xml version="},
        {"two roots", "<a/><b/>"},
        {"text only", "just text"},
        {"duplicate attribute", "<a x='1' x='2'/>"},
        {"mismatched end", "<a></b>"},
        {"lone end tag", "</a>"},
        {"unquoted attribute", "<a x=1/>"},
        {"comment with double hyphen", "<a><!-- -- --></a>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        std::unique_ptr<XmlReader> r;
        ASSERT_NO_THROW(r.reset(new XmlReader(c.second)));
        std::size_t nodes = 0;
        ASSERT_NO_THROW(nodes = drain(*r));
        EXPECT_LT(nodes, 10U);
        EXPECT_EQ(r->state(), XML_TEXTREADER_MODE_ERROR);
        // After the error every query still answers and the state stays; libxml2 may walk
        // what it had built once more, so further movements are only required not to fail.
        touchEveryQuery(*r);
        for (int i = 0; i < 4; ++i) {
            (void)r->read();
            (void)r->nextElement();
            touchEveryQuery(*r);
        }
        EXPECT_EQ(r->state(), XML_TEXTREADER_MODE_ERROR);
        // reset() starts over and meets the same error again.
        r->reset();
        drain(*r);
        EXPECT_EQ(r->state(), XML_TEXTREADER_MODE_ERROR);
    }
}

TEST(ReaderMalformed, VeryDeepNestingEndsCleanly)
{
    tarntest::QuietLibxml2 quiet;
    const int levels = 100000;
    std::string doc;
    doc.reserve(static_cast<std::size_t>(levels) * 7 + 1);
    for (int i = 0; i < levels; ++i)
        doc += "<e>";
    for (int i = 0; i < levels; ++i)
        doc += "</e>";
    XmlReader r(doc);
    int deepest = 0;
    std::size_t nodes = 0;
    while (r.read()) {
        ++nodes;
        deepest = std::max(deepest, r.depth());
        ASSERT_EQ(r.name(), "e");
    }
    const int finalState = r.state();
    EXPECT_TRUE(finalState == XML_TEXTREADER_MODE_ERROR || finalState == XML_TEXTREADER_MODE_EOF) << finalState;
    EXPECT_LT(deepest, levels);
    if (finalState == XML_TEXTREADER_MODE_EOF) {
        EXPECT_EQ(nodes, static_cast<std::size_t>(levels) * 2);
    }
}

TEST(ReaderMalformed, HugeTextNodeEndsCleanly)
{
    tarntest::QuietLibxml2 quiet;
    const std::size_t size = 50U * 1024U * 1024U;
    std::string doc = "<a>";
    doc.reserve(size + 16);
    doc.append(size, 'x');
    doc += "</a>";
    XmlReader r(doc);
    doc.clear();
    doc.shrink_to_fit();
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.name(), "a");
    std::size_t longest = 0;
    while (r.read()) {
        if (r.nodeType() == XML_READER_TYPE_TEXT) {
            std::string text;
            r.value(text);
            longest = std::max(longest, text.size());
            EXPECT_EQ(text.find_first_not_of('x'), std::string::npos);
        }
    }
    const int finalState = r.state();
    EXPECT_TRUE(finalState == XML_TEXTREADER_MODE_ERROR || finalState == XML_TEXTREADER_MODE_EOF) << finalState;
    if (finalState == XML_TEXTREADER_MODE_EOF) {
        EXPECT_EQ(longest, size);
    }
}

// ---------------------------------------------------------------------------------------------
// Leaks: every getter at every node and attribute of a document that makes libxml2 allocate in
// each of them (names with prefixes, base URIs, namespaces, inner/outer XML). LeakSanitizer
// fails the run if one string is not freed.

TEST(ReaderLeaks, EveryGetterAtEveryNodeAndAttribute)
{
    const std::string doc =
        "<?xml version='1.0' encoding='UTF-8'?>"
        "<!DOCTYPE r [<!ENTITY e 'ent'><!ATTLIST r d CDATA 'default'>]>"
        "<r xmlns:p='urn:p' xml:base='http://example.com/' xml:lang='en' x='1' p:y='2'>"
        "<!--c--><?pi d?><![CDATA[c]]>&e;<p:s xml:space='preserve'> <t p:y='3'>true</t></p:s></r>";
    std::size_t visited = 0;
    XmlReader r(doc);
    while (r.read()) {
        ++visited;
        touchEveryQuery(r);
        if (r.firstAttribute()) {
            do {
                touchEveryQuery(r);
                while (r.readAttributeValue())
                    touchEveryQuery(r);
            } while (r.nextAttribute());
            ASSERT_TRUE(r.moveToElement());
        }
        EXPECT_FALSE(r.innerXml().empty() && r.outerXml().empty());
    }
    EXPECT_EQ(r.state(), XML_TEXTREADER_MODE_EOF);
    EXPECT_GT(visited, 10U);

    // The base URI and default attribute paths were reached.
    r.reset();
    ASSERT_TRUE(r.read());
    ASSERT_TRUE(r.read());
    EXPECT_EQ(r.baseUri(), "http://example.com/");
    EXPECT_EQ(r.getAttribute("d"), "default");  // from the internal subset's declaration
}

} // namespace
