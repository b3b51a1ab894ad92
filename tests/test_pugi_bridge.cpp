// The pugixml bridge: typed reads, printing with the numeric reference clean-up, and conversion
// between pugixml documents and the libxml2 tree.
#include <gtest/gtest.h>

#include <sstream>

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

// fromXml's result and the value it leaves in an output preset to `value`.
template <typename T>
std::string read(const pugi::xml_node& node, const char* name, T value)
{
    std::ostringstream out;
    out << XmlHelper::fromXml(value, node, name) << ":" << std::boolalpha << value;
    return out.str();
}

TEST(PugiPrint, LayoutAndControlCharacterReferences)
{
    // References to refused controls become '?' (the rules are replaceInvalidNumericEncodings'), also where
    // they are only comment text: the pass runs over the printed output.
    pugi::xml_document doc = parsed("<r k=\"x&#1;y&#9;z\"><a><b>p&#2;q</b></a><c/><!--&#7;&#65;--></r>");
    const pugi::xml_node r = doc.document_element();
    const struct { bool formatted; const char *indent, *outer, *inner; } rows[] = {
        {false, nullptr, "<r k=\"x?y&#09;z\"><a><b>p?q</b></a><c/><!--?&#65;--></r>",
         "<a><b>p?q</b></a><c/><!--?&#65;-->"},
        {true, "  ", "<r k=\"x?y&#09;z\">\n  <a>\n    <b>p?q</b>\n  </a>\n  <c />\n  <!--?&#65;-->\n</r>\n",
         "<a>\n  <b>p?q</b>\n</a>\n<c />\n<!--?&#65;-->\n"},
        {true, nullptr, "<r k=\"x?y&#09;z\">\n<a>\n<b>p?q</b>\n</a>\n<c />\n<!--?&#65;-->\n</r>\n",
         "<a>\n<b>p?q</b>\n</a>\n<c />\n<!--?&#65;-->\n"},
    };
    for (const auto& [f, in, outer, inner] : rows)
        EXPECT_EQ(XmlHelper::outerXml(r, f, in) + "|" + XmlHelper::innerXml(r, f, in) + "|" +
                      XmlHelper::outerXml(pugi::xml_node(), f, in) + XmlHelper::innerXml(r.child("c"), f, in),
                  std::string(outer) + "|" + inner + "|")
            << f << (in ? " indent" : " null indent");
}

TEST(PugiPrint, SameBytesAsPugixmlsStreamPrintAtEverySize)
{
    // Large output is collected in blocks; sizes around the block edges must come out whole.
    const size_t edge = 64 * 1024;
    for (size_t size : {size_t(0), edge - 9, edge - 8, edge - 7, edge, edge + 1, 2 * edge + 3, 5 * edge + 17}) {
        pugi::xml_document doc;
        pugi::xml_node e = doc.append_child("e");
        std::string text(size, 'x');
        for (size_t i = 0; i < size; i += 1000)
            text[i] = '&';  // escaped: the printed text grows unevenly
        e.text().set(text.c_str());
        e.append_child("f").append_attribute("a") = "b";
        for (bool formatted : {false, true}) {
            std::ostringstream outer, inner;
            doc.print(outer, "  ", formatted ? pugi::format_indent : pugi::format_raw, pugi::encoding_auto, 0);
            for (pugi::xml_node child : e.children())
                child.print(inner, "  ", formatted ? pugi::format_indent : pugi::format_raw, pugi::encoding_auto, 0);
            EXPECT_EQ(XmlHelper::outerXml(doc, formatted, "  "), outer.str()) << size;
            EXPECT_EQ(XmlHelper::innerXml(e, formatted, "  "), inner.str()) << size;
        }
    }
}

TEST(PugiRead, ConversionsArePugixmlsAndMissingTextLeavesOutputs)
{
    pugi::xml_document doc = parsed("<r><i>12abc</i><big>9223372036854775807</big><u>4294967295</u><d>2.5e3</d>"
                                    "<t>yes</t><s> x &amp; y </s><c><![CDATA[-42]]></c><empty></empty>"
                                    "<huge>18446744073709551615</huge><nested><x>1</x></nested>text</r>");
    const pugi::xml_node r = doc.document_element();
    using S = std::string;
    // A CDATA child counts as text; a null name reads the node's own first text.
    EXPECT_EQ(read(r, "i", -1) + " " + read(r, "u", 0u) + " " + read(r, "big", 0LL) + " " + read(r, "huge", 0ULL) +
                  " " + read(r, "d", 0.0) + " " + read(r, "t", false) + " " + read(r, "c", 0) + " " +
                  read<S>(r, "s", "") + "|" + read<S>(r, nullptr, ""),
              "0:12 0:4294967295 0:9223372036854775807 0:18446744073709551615 0:2500 0:true 0:-42 0: x & y |0:text");
    for (const char* name : {"missing", "empty", "nested"})
        EXPECT_EQ(read(r, name, 11) + read(r, name, 1.5) + read(r, name, true) + read<S>(r, name, "s"),
                  "-1:11-1:1.5-1:true-1:s") << name;
    EXPECT_EQ(read(pugi::xml_node(), nullptr, 7), "-1:7");
}

TEST(PugiConvert, BothWays)
{
    pugi::xml_document doc = parsed("<old><x/></old>");
    EXPECT_FALSE(XmlHelper::convert(tarn::XmlNodePtr(), doc) || XmlHelper::convert(pugi::xml_node()) ||
                 XmlHelper::convert(parsed("<r>text</r>").document_element().first_child()));
    EXPECT_STREQ(doc.document_element().name(), "old");
    // There and back: the copy outlives the pugixml document it came from and replaces the tree of `doc`.
    const char* const text = "<r a=\"1\" b=\"x&amp;y\"><c>t &lt; u</c><!--n--><d k=\"v\"/></r>";
    const tarn::XmlNodePtr copy = XmlHelper::convert(parsed(text).document_element());
    ASSERT_TRUE(copy && XmlHelper::convert(copy, doc));
    EXPECT_EQ(XmlHelper::outerXml(doc, false, nullptr), text);
}

} // namespace
