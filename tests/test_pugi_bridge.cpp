// The pugixml bridge: typed reads, printing with the numeric reference clean-up, and conversion
// between pugixml documents and the libxml2 tree.
#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlNode.h"

namespace {

pugi::xml_document parsed(const char* text)
{
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(text, pugi::parse_full)) << text;
    return doc;
}

// --- Printing -----------------------------------------------------------------------------------------

TEST(PugiPrint, NullNodesAndChildlessNodesPrintNothing)
{
    const pugi::xml_node null;
    for (bool formatted : {false, true}) {
        EXPECT_EQ(XmlHelper::outerXml(null, formatted, "  "), "");
        EXPECT_EQ(XmlHelper::innerXml(null, formatted, "  "), "");
    }
    pugi::xml_document doc = parsed("<a/>");
    EXPECT_EQ(XmlHelper::innerXml(doc.document_element(), false, nullptr), "");
    EXPECT_EQ(XmlHelper::innerXml(doc.document_element(), true, "  "), "");
    pugi::xml_document empty;
    EXPECT_EQ(XmlHelper::outerXml(empty, true, nullptr), "");
}

TEST(PugiPrint, LayoutByFlagsAndIndent)
{
    pugi::xml_document doc = parsed("<r k=\"v\"><a><b>t</b></a><c/></r>");
    const pugi::xml_node r = doc.document_element();
    struct Row {
        const char* name;
        bool formatted;
        const char* indent;
        const char* outer;
        const char* inner;
    };
    const std::vector<Row> rows{
        {"raw ignores the indent", false, "  ", "<r k=\"v\"><a><b>t</b></a><c/></r>", "<a><b>t</b></a><c/>"},
        {"raw with null indent", false, nullptr, "<r k=\"v\"><a><b>t</b></a><c/></r>", "<a><b>t</b></a><c/>"},
        {"two spaces per level", true, "  ", "<r k=\"v\">\n  <a>\n    <b>t</b>\n  </a>\n  <c />\n</r>\n",
         "<a>\n  <b>t</b>\n</a>\n<c />\n"},
        {"null indent: lines without indentation", true, nullptr, "<r k=\"v\">\n<a>\n<b>t</b>\n</a>\n<c />\n</r>\n",
         "<a>\n<b>t</b>\n</a>\n<c />\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(XmlHelper::outerXml(r, row.formatted, row.indent), row.outer);
        EXPECT_EQ(XmlHelper::innerXml(r, row.formatted, row.indent), row.inner);
    }
}

TEST(PugiPrint, InnerXmlPrintsEveryKindOfChild)
{
    pugi::xml_document doc = parsed("<r>x<!--c--><?p d?><![CDATA[<]]><e/></r>");
    EXPECT_EQ(XmlHelper::innerXml(doc.document_element(), false, nullptr), "x<!--c--><?p d?><![CDATA[<]]><e/>");
    // The document's own children: declaration and root.
    pugi::xml_document withDecl = parsed("<?xml version=\"1.0\"?><r/>");
    EXPECT_EQ(XmlHelper::innerXml(withDecl, false, nullptr), "<?xml version=\"1.0\"?><r/>");
}

TEST(PugiPrint, ControlCharacterReferencesBecomeQuestionMarks)
{
    pugi::xml_document doc;
    pugi::xml_node e = doc.append_child("e");
    e.append_attribute("a") = "x\x01y\tz";
    e.text().set("p\x02q\x1Fr\ns");
    EXPECT_EQ(XmlHelper::outerXml(doc, false, nullptr), "<e a=\"x?y&#09;z\">p?q?r\ns</e>");
    EXPECT_EQ(XmlHelper::innerXml(doc, true, "  "), "<e a=\"x?y&#09;z\">p?q?r\ns</e>\n");
    // References that are only text (in a comment) are cleaned too: the pass runs over the output.
    pugi::xml_document comment = parsed("<r><!--&#7;&#65;&#x7F;&#200;--></r>");
    EXPECT_EQ(XmlHelper::outerXml(comment, false, nullptr), "<r><!--?&#65;?&#200;--></r>");
}

TEST(PugiPrint, SameBytesAsPugixmlsStreamPrintAtEverySize)
{
    // Large output is collected in blocks; sizes around the block edges must come out whole.
    const size_t edge = 64 * 1024;
    for (size_t size : {size_t(0), size_t(1), edge - 9, edge - 8, edge - 7, edge, edge + 1, 2 * edge - 8,
                        2 * edge + 3, 5 * edge + 17}) {
        SCOPED_TRACE(size);
        pugi::xml_document doc;
        pugi::xml_node e = doc.append_child("e");
        std::string text(size, 'x');
        for (size_t i = 0; i < size; i += 1000)
            text[i] = '&';  // escaped: the printed text grows unevenly
        e.text().set(text.c_str());
        e.append_child("f").append_attribute("a") = "b";
        for (bool formatted : {false, true}) {
            std::ostringstream stream;
            doc.print(stream, "  ", formatted ? pugi::format_indent : pugi::format_raw, pugi::encoding_auto, 0);
            EXPECT_EQ(XmlHelper::outerXml(doc, formatted, "  "), stream.str());
            std::ostringstream inner;
            for (pugi::xml_node child : e.children())
                child.print(inner, "  ", formatted ? pugi::format_indent : pugi::format_raw, pugi::encoding_auto, 0);
            EXPECT_EQ(XmlHelper::innerXml(e, formatted, "  "), inner.str());
        }
    }
}

// --- Typed reads --------------------------------------------------------------------------------------

TEST(PugiRead, GetFromNode)
{
    pugi::xml_document doc = parsed("<r><a>1</a><a>2</a></r>");
    const pugi::xml_node r = doc.document_element();
    EXPECT_EQ(XmlHelper::getFromNode(r, nullptr), r);
    EXPECT_STREQ(XmlHelper::getFromNode(r, "a").text().get(), "1");
    EXPECT_FALSE(XmlHelper::getFromNode(r, "missing"));
    EXPECT_FALSE(XmlHelper::getFromNode(pugi::xml_node(), "a"));
    EXPECT_FALSE(XmlHelper::getFromNode(pugi::xml_node(), nullptr));
}

TEST(PugiRead, ConversionsArePugixmls)
{
    pugi::xml_document doc = parsed("<r><i>12abc</i><neg>-7</neg><big>9223372036854775807</big>"
                                    "<u>4294967295</u><d>2.5e3</d><t>yes</t><f>no</f><s> x &amp; y </s>"
                                    "<c><![CDATA[42]]></c><empty></empty><nested><x>1</x></nested>text</r>");
    const pugi::xml_node r = doc.document_element();

    int i = -1;
    EXPECT_EQ(XmlHelper::fromXml(i, r, "i"), 0);
    EXPECT_EQ(i, 12);
    EXPECT_EQ(XmlHelper::fromXml(i, r, "neg"), 0);
    EXPECT_EQ(i, -7);
    EXPECT_EQ(XmlHelper::fromXml(i, r, "c"), 0);  // a CDATA child counts as text
    EXPECT_EQ(i, 42);

    unsigned int u = 0;
    EXPECT_EQ(XmlHelper::fromXml(u, r, "u"), 0);
    EXPECT_EQ(u, UINT_MAX);

    long long ll = 0;
    EXPECT_EQ(XmlHelper::fromXml(ll, r, "big"), 0);
    EXPECT_EQ(ll, LLONG_MAX);
    unsigned long long ull = 0;
    EXPECT_EQ(XmlHelper::fromXml(ull, r, "big"), 0);
    EXPECT_EQ(ull, static_cast<unsigned long long>(LLONG_MAX));

    double d = 0;
    EXPECT_EQ(XmlHelper::fromXml(d, r, "d"), 0);
    EXPECT_DOUBLE_EQ(d, 2500.0);

    bool b = false;
    EXPECT_EQ(XmlHelper::fromXml(b, r, "t"), 0);
    EXPECT_TRUE(b);
    EXPECT_EQ(XmlHelper::fromXml(b, r, "f"), 0);
    EXPECT_FALSE(b);

    std::string s;
    EXPECT_EQ(XmlHelper::fromXml(s, r, "s"), 0);
    EXPECT_EQ(s, " x & y ");
    // A null name reads the node's own text: its first text child.
    EXPECT_EQ(XmlHelper::fromXml(s, r, nullptr), 0);
    EXPECT_EQ(s, "text");
}

TEST(PugiRead, MissingChildOrNoTextLeavesTheOutputUnchanged)
{
    pugi::xml_document doc = parsed("<r><empty></empty><nested><x>1</x></nested></r>");
    const pugi::xml_node r = doc.document_element();
    for (const char* name : {"missing", "empty", "nested"}) {
        SCOPED_TRACE(name);
        bool b = true;
        double d = 1.5;
        int i = 3;
        unsigned int u = 4;
        long long ll = 5;
        unsigned long long ull = 6;
        std::string s = "keep";
        EXPECT_EQ(XmlHelper::fromXml(b, r, name), -1);
        EXPECT_EQ(XmlHelper::fromXml(d, r, name), -1);
        EXPECT_EQ(XmlHelper::fromXml(i, r, name), -1);
        EXPECT_EQ(XmlHelper::fromXml(u, r, name), -1);
        EXPECT_EQ(XmlHelper::fromXml(ll, r, name), -1);
        EXPECT_EQ(XmlHelper::fromXml(ull, r, name), -1);
        EXPECT_EQ(XmlHelper::fromXml(s, r, name), -1);
        EXPECT_TRUE(b);
        EXPECT_EQ(d, 1.5);
        EXPECT_EQ(i, 3);
        EXPECT_EQ(u, 4u);
        EXPECT_EQ(ll, 5);
        EXPECT_EQ(ull, 6u);
        EXPECT_EQ(s, "keep");
    }
    int i = 9;
    EXPECT_EQ(XmlHelper::fromXml(i, r.child("empty"), nullptr), -1);
    EXPECT_EQ(XmlHelper::fromXml(i, pugi::xml_node(), nullptr), -1);
    EXPECT_EQ(i, 9);
}

// --- Conversion -----------------------------------------------------------------------------------------

TEST(PugiConvert, EmptyInputsFailWithoutTouchingTheDocument)
{
    pugi::xml_document doc = parsed("<keep/>");
    EXPECT_FALSE(XmlHelper::convert(tarn::XmlNodePtr(), doc));
    EXPECT_STREQ(doc.document_element().name(), "keep");
    EXPECT_FALSE(XmlHelper::convert(pugi::xml_node()));
}

TEST(PugiConvert, XmlNodeToPugixmlReplacesTheTree)
{
    const tarn::XmlDocumentPtr source =
        tarn::CreateXmlDocument("<r a=\"1\" b=\"x&amp;y\"><c>t</c><!--n--><d/></r>");
    ASSERT_TRUE(source);
    pugi::xml_document doc = parsed("<old><x/></old>");
    ASSERT_TRUE(XmlHelper::convert(source->GetRoot(), doc));
    EXPECT_EQ(XmlHelper::outerXml(doc.document_element(), false, nullptr),
              "<r a=\"1\" b=\"x&amp;y\"><c>t</c><!--n--><d/></r>");
    EXPECT_FALSE(doc.child("old"));
}

TEST(PugiConvert, PugixmlToXmlNodeGivesAnIndependentTree)
{
    tarn::XmlNodePtr copy;
    {
        pugi::xml_document doc = parsed("<r a=\"1\"><c>t &lt; u</c><d k=\"v\"/></r>");
        copy = XmlHelper::convert(doc.document_element());
        ASSERT_TRUE(copy);
        doc.document_element().child("c").text().set("changed");
    }
    pugi::xml_document back;
    ASSERT_TRUE(XmlHelper::convert(copy, back));
    EXPECT_EQ(XmlHelper::outerXml(back.document_element(), false, nullptr),
              "<r a=\"1\"><c>t &lt; u</c><d k=\"v\"/></r>");
}

TEST(PugiConvert, NodesThatAreNotDocumentsGiveEmptyHandles)
{
    pugi::xml_document doc = parsed("<r>text<!--c--></r>");
    EXPECT_FALSE(XmlHelper::convert(doc.document_element().first_child()));
    EXPECT_FALSE(XmlHelper::convert(doc.document_element().last_child()));
}

} // namespace
