// The pugixml bridge: typed reads, printing with the numeric reference clean-up, and conversion
// between pugixml documents and the libxml2 tree.
#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <string>

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

TEST(PugiPrint, LayoutByFlagsAndIndent)
{
    pugi::xml_document doc = parsed("<r k=\"v\"><a><b>t</b></a><c/></r>");
    const struct { bool formatted; const char *indent, *outer, *inner; } rows[] = {
        {false, "  ", "<r k=\"v\"><a><b>t</b></a><c/></r>", "<a><b>t</b></a><c/>"},
        {false, nullptr, "<r k=\"v\"><a><b>t</b></a><c/></r>", "<a><b>t</b></a><c/>"},
        {true, "  ", "<r k=\"v\">\n  <a>\n    <b>t</b>\n  </a>\n  <c />\n</r>\n", "<a>\n  <b>t</b>\n</a>\n<c />\n"},
        {true, nullptr, "<r k=\"v\">\n<a>\n<b>t</b>\n</a>\n<c />\n</r>\n", "<a>\n<b>t</b>\n</a>\n<c />\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.formatted << (row.indent ? " indent" : " null indent"));
        EXPECT_EQ(XmlHelper::outerXml(doc.document_element(), row.formatted, row.indent), row.outer);
        EXPECT_EQ(XmlHelper::innerXml(doc.document_element(), row.formatted, row.indent), row.inner);
        EXPECT_EQ(XmlHelper::outerXml(pugi::xml_node(), row.formatted, row.indent), "");
        EXPECT_EQ(XmlHelper::innerXml(doc.document_element().child("c"), row.formatted, row.indent), "");
    }
}

TEST(PugiPrint, ControlCharacterReferencesBecomeQuestionMarks)
{
    pugi::xml_document doc;
    pugi::xml_node e = doc.append_child("e");
    e.append_attribute("a") = "x\x01y\tz";
    e.text().set("p\x02q\x1Fr\ns");
    EXPECT_EQ(XmlHelper::outerXml(doc, false, nullptr), "<e a=\"x?y&#09;z\">p?q?r\ns</e>");
    EXPECT_EQ(XmlHelper::innerXml(doc, true, "  "), "<e a=\"x?y&#09;z\">p?q?r\ns</e>\n");
    // The pass runs over the output, so references that are only comment text are cleaned too.
    EXPECT_EQ(XmlHelper::outerXml(parsed("<r><!--&#7;&#65;&#x7F;&#200;--></r>"), false, nullptr),
              "<r><!--?&#65;?&#200;--></r>");
}

TEST(PugiPrint, SameBytesAsPugixmlsStreamPrintAtEverySize)
{
    // Large output is collected in blocks; sizes around the block edges must come out whole.
    const size_t edge = 64 * 1024;
    for (size_t size : {size_t(0), edge - 9, edge - 8, edge - 7, edge, edge + 1, 2 * edge + 3, 5 * edge + 17}) {
        SCOPED_TRACE(size);
        pugi::xml_document doc;
        pugi::xml_node e = doc.append_child("e");
        std::string text(size, 'x');
        for (size_t i = 0; i < size; i += 1000)
            text[i] = '&';  // escaped: the printed text grows unevenly
        e.text().set(text.c_str());
        e.append_child("f").append_attribute("a") = "b";
        for (bool formatted : {false, true}) {
            const unsigned flags = formatted ? pugi::format_indent : pugi::format_raw;
            std::ostringstream outer, inner;
            doc.print(outer, "  ", flags, pugi::encoding_auto, 0);
            for (pugi::xml_node child : e.children())
                child.print(inner, "  ", flags, pugi::encoding_auto, 0);
            EXPECT_EQ(XmlHelper::outerXml(doc, formatted, "  "), outer.str());
            EXPECT_EQ(XmlHelper::innerXml(e, formatted, "  "), inner.str());
        }
    }
}

TEST(PugiRead, ConversionsArePugixmlsAndMissingTextLeavesOutputs)
{
    pugi::xml_document doc = parsed("<r><i>12abc</i><big>9223372036854775807</big><u>4294967295</u><d>2.5e3</d>"
                                    "<t>yes</t><s> x &amp; y </s><c><![CDATA[-42]]></c><empty></empty>"
                                    "<nested><x>1</x></nested>text</r>");
    const pugi::xml_node r = doc.document_element();
    int i = -1;
    unsigned u = 0;
    long long ll = 0;
    unsigned long long ull = 0;
    double d = 0;
    bool b = false;
    std::string s;
    EXPECT_EQ(XmlHelper::fromXml(i, r, "i") + XmlHelper::fromXml(u, r, "u") + XmlHelper::fromXml(ll, r, "big") +
                  XmlHelper::fromXml(ull, r, "big") + XmlHelper::fromXml(d, r, "d") + XmlHelper::fromXml(b, r, "t"),
              0);
    EXPECT_TRUE(i == 12 && u == UINT_MAX && ll == LLONG_MAX && ull == 9223372036854775807ull && d == 2500.0 && b);
    EXPECT_EQ(XmlHelper::fromXml(i, r, "c"), 0);  // a CDATA child counts as text
    EXPECT_EQ(i, -42);
    EXPECT_EQ(XmlHelper::fromXml(s, r, "s"), 0);
    EXPECT_EQ(s, " x & y ");
    EXPECT_EQ(XmlHelper::fromXml(s, r, nullptr), 0);  // null name: the node's own first text
    EXPECT_EQ(s, "text");
    for (const char* name : {"missing", "empty", "nested"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(XmlHelper::fromXml(i, r, name) + XmlHelper::fromXml(d, r, name) + XmlHelper::fromXml(b, r, name) +
                      XmlHelper::fromXml(s, r, name),
                  -4);
        EXPECT_TRUE(i == -42 && d == 2500.0 && b && s == "text");
    }
    EXPECT_EQ(XmlHelper::fromXml(i, pugi::xml_node(), nullptr), -1);
    EXPECT_EQ(XmlHelper::getFromNode(r, nullptr), r);
}

TEST(PugiConvert, BothWays)
{
    pugi::xml_document doc = parsed("<old><x/></old>");
    EXPECT_FALSE(XmlHelper::convert(tarn::XmlNodePtr(), doc));
    EXPECT_STREQ(doc.document_element().name(), "old");
    EXPECT_FALSE(XmlHelper::convert(pugi::xml_node()));
    EXPECT_FALSE(XmlHelper::convert(parsed("<r>text</r>").document_element().first_child()));

    const tarn::XmlDocumentPtr source = tarn::CreateXmlDocument("<r a=\"1\" b=\"x&amp;y\"><c>t</c><!--n--><d/></r>");
    ASSERT_TRUE(source);
    ASSERT_TRUE(XmlHelper::convert(source->GetRoot(), doc));  // replaces the document's tree
    EXPECT_EQ(XmlHelper::outerXml(doc, false, nullptr), "<r a=\"1\" b=\"x&amp;y\"><c>t</c><!--n--><d/></r>");

    tarn::XmlNodePtr copy;
    {
        pugi::xml_document temp = parsed("<r a=\"1\"><c>t &lt; u</c><d k=\"v\"/></r>");
        copy = XmlHelper::convert(temp.document_element());
        ASSERT_TRUE(copy);
        temp.document_element().child("c").text().set("changed");
    }
    ASSERT_TRUE(XmlHelper::convert(copy, doc));
    EXPECT_EQ(XmlHelper::outerXml(doc, false, nullptr), "<r a=\"1\"><c>t &lt; u</c><d k=\"v\"/></r>");
}

} // namespace
