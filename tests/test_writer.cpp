// tarn::XmlWriter: the printed form, the stack of open nodes, value cleaning, special content
// and the silent handling of misuse.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tarnxml/XmlWriter.h"

namespace {

using W = tarn::XmlWriter;
struct Case { const char* name; std::function<void(W&)> script; std::string expected; };

std::string written(const std::function<void(W&)>& script)
{
    W writer;
    return script(writer), writer.str();
}

void runTable(const std::vector<Case>& cases)
{
    for (const Case& c : cases)
        EXPECT_EQ(written(c.script), c.expected) << c.name;
}

const char* const kNone = nullptr;
const std::string kDecl = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

TEST(Writer, WorkedExamplesAndDeclarations)
{
    runTable({
        {"unformatted", [](W& w) {
             w.startDocument(nullptr, nullptr, nullptr); w.startElement("list"); w.writeAttribute("count", "2");
             w.writeElement("item", "a & b"); w.writeElement("flag", true, false); w.endElement();
         }, kDecl + "<list count=\"2\"><item>a &amp; b</item><flag>True</flag></list>"},
        {"formatted", [](W& w) {
             w.setFormatted(true); w.setIndentString("  "); w.startDocument(nullptr, nullptr, nullptr);
             w.startElement("list"); w.writeAttribute("count", "2"); w.writeElement("item", "a & b");
             w.writeElement("flag", true, false); w.startElement("empty"); w.endElement(); w.endElement();
         }, kDecl + "\n<list count=\"2\">\n  <item>a &amp; b</item>\n  <flag>True</flag>\n  <empty />\n</list>\n"},
        {"prepended before content, newest first, nothing pushed; standalone no omitted", [](W& w) {
             w.writeElement("a", "1"); w.startDocument("1.1", "ISO-8859-1", ""); w.startDocument(nullptr, nullptr, "No");
             w.startDocument(nullptr, nullptr, "no"); w.writeAttribute("x", "1");
         }, kDecl + "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"No\"?>"
                    "<?xml version=\"1.1\" encoding=\"ISO-8859-1\" standalone=\"\"?><a>1</a>"},
        {"one, two and three texts: the last keeps standalone no", [](W& w) {
             w.startDocument(std::string("1")); w.startDocument(std::string("2"), std::string(""));
             w.startDocument(std::string("3"), std::string("UTF-8"), std::string("no"));
         }, "<?xml version=\"3\" encoding=\"UTF-8\" standalone=\"no\"?><?xml version=\"2\" encoding=\"\"?>"
            "<?xml version=\"1\"?>"},
    });
}

TEST(Writer, ContentSpecialNodesAndMisuse)
{
    const unsigned char bytes[] = {0x00, 0x61, 0x00, 0xFF, 0x10};
    const std::string withNuls("a\0b", 3);
    runTable({
        {"attribute after text lands in the start tag", [](W& w) {
             w.startElement("e"); w.writeText("t"); w.writeElement("c", "v"); w.writeAttribute("x", "1");
         }, "<e x=\"1\">t<c>v</c></e>"},
        {"unmatched end calls only pop", [](W& w) {
             w.endElement(); w.startElement("a"); w.endElement(); w.endElement(); w.endDocument(); w.writeElement("b", "");
         }, "<a/><b></b>"},
        {"null names and texts do nothing", [](W& w) {
             w.startElement(kNone); w.writeElement(kNone, "v"); w.writeElement(kNone, true, true); w.writeText("t");
             w.startElement("a"); w.writeAttribute(kNone, "v"); w.writeAttribute(kNone, false, false);
             w.writeText("keep"); w.writeText(kNone); w.writeElement("n", kNone);
         }, "<a>keep<n/></a>"},
        {"str() closes nothing; reset forgets the document and the open nodes", [](W& w) {
             w.startElement("x"); w.reset(); w.writeText("lost"); w.startElement("a"); w.startElement("b"); w.str();
             w.writeText("t");
         }, "<a><b>t</b></a>"},
        {"boolean words", [](W& w) {
             w.startElement("e"); w.writeAttribute("a", true, false); w.writeAttribute(std::string("b"), false, false);
             w.writeAttribute("c", true, true); w.writeElement(std::string("d"), false, true); w.writeText(true, false);
         }, "<e a=\"True\" b=\"False\" c=\"1\"><d>0</d>True</e>"},
        {"CDATA unescaped, ]]> split, null empty", [](W& w) {
             w.startElement("e"); w.writeCDATA("a<b&c"); w.writeCDATA(std::string("x]]>y")); w.writeCDATA(kNone);
         }, "<e><![CDATA[a<b&c]]><![CDATA[x]]]]><![CDATA[>y]]><![CDATA[]]></e>"},
        {"startCDATA takes the last writeText; endElement does not close it", [](W& w) {
             w.startElement("e"); w.startCDATA(); w.writeText("x"); w.endElement(); w.endComment(); w.writeText("y");
             w.endCDATA(); w.writeAttribute("after", "1");
         }, "<e after=\"1\"><![CDATA[y]]></e>"},
        {"nothing can be added under a comment; a refused startElement pushes an empty handle", [](W& w) {
             w.startElement("e"); w.startComment(); w.writeText("x"); w.writeElement("lost", "1"); w.writeCDATA("lost");
             w.writeComment("lost"); w.writeAttribute("lost", "1"); w.writeRaw("<lost/>"); w.endComment();
             w.writeComment("kept"); w.startCDATA(); w.startElement("x"); w.endElement(); w.endCDATA(); w.endComment();
             w.writeText("lost"); w.writeElement("lost", ""); w.endDocument(); w.writeElement("top", "");
         }, "<e><!----><!--kept--><![CDATA[]]></e><top></top>"},
        {"base64 and hex count NULs; a second encoding replaces, a zero count or null does nothing", [&](W& w) {
             w.startElement("e"); w.writeBinaryHex(bytes, 0, 1); w.writeBase64(withNuls); w.writeBinaryHex(bytes, 2, 0);
             w.writeBase64(static_cast<const unsigned char*>(nullptr), 0, 3); w.startElement("f");
             w.writeBinaryHex(withNuls); w.startElement("g"); w.writeBinaryHex(bytes, 1, 3); w.startElement("h");
             w.writeBase64(withNuls.data(), 1, 2);
         }, "<e>YQBi<f>610062<g>6100FF<h>AGI=</h></g></f></e>"},
        {"raw at the top level: replaces the document and becomes current", [](W& w) {
             w.startDocument(nullptr, nullptr, nullptr); w.writeElement("gone", ""); w.writeRaw("<r a=\"1\"><c>t</c></r>");
             w.writeAttribute("b", "2"); w.writeElement("d", ""); w.endElement(); w.writeElement("after", "");
         }, "<r a=\"1\" b=\"2\"><c>t</c><d></d></r><after></after>"},
        {"malformed raw at the top level leaves nothing current", [](W& w) {
             w.writeRaw("<a><b></a>"); w.writeText("lost"); w.endDocument(); w.reset(); w.writeRaw("not markup");
             w.writeText("lost"); w.writeElement("top", "");
         }, "<top></top>"},
        {"raw inside: appended, comments dropped, entities resolved", [](W& w) {
             w.startElement("e"); w.writeRaw("<!--c-->"); w.writeRaw(std::string("<a>x &amp; y</a><b>&#1;</b>"));
             w.writeText("t");
         }, "<e><a>x &amp; y</a><b>?</b>t</e>"},
        {"raw of length 0 or null does nothing, and the length decides", [](W& w) {
             w.startElement("e"); w.writeRaw("<a/>", 0); w.writeRaw(kNone); w.writeRaw(kNone, 4); w.writeRaw("<a/><b/>", 4);
         }, "<e><a/></e>"},
    });
}

TEST(Writer, EveryKindOfValueIsRepaired)
{
    // The repair rules are sanitize's own (test_utf8); here each kind of write must go through them.
    const std::string bad = "\xC3\xA9\xFF" "b\x01\xC3", good = "\xC3\xA9\xEF\xBF\xBD" "b?";
    EXPECT_EQ(written([&](W& w) { w.startElement("e"); w.writeAttribute("a", bad); w.writeText(bad); w.writeCDATA(bad);
                                  w.writeComment(bad); w.writeElement("f", bad); }),
              "<e a=\"" + good + "\">" + good + "<![CDATA[" + good + "]]><!--" + good + "--><f>" + good + "</f></e>");
    std::string valid(1 << 20, 'v'), invalid, repaired;
    for (int i = 0; i < 256; ++i)
        invalid += '\x80' + std::string(4095, 'w'), repaired += "\xEF\xBF\xBD" + std::string(4095, 'w');
    EXPECT_EQ(written([&](W& w) { w.startElement("e"); w.writeAttribute("v", valid); w.writeAttribute("i", invalid); }),
              "<e v=\"" + valid + "\" i=\"" + repaired + "\"/>");
    // A std::string value ends at its first zero byte, valid or not before it.
    const std::string zero("ab\0cd", 5), zeroBad("\xFF\0cd", 4);
    EXPECT_EQ(written([&](W& w) { w.startElement("e"); w.writeAttribute("a", zero); w.writeAttribute("b", zeroBad);
                                  w.writeElement("f", zero); w.writeText(zero); }),
              "<e a=\"ab\" b=\"\xEF\xBF\xBD\"><f>ab</f>ab</e>");
}

TEST(Writer, BadRawMarkupIsHarmless)
{
    // Embedded NULs, a cut multi-byte character and garbage, at the top level and inside an element.
    for (const std::string& input : {std::string("<a>x</a>\0<b/>", 13), std::string("<a>\0</a>", 8),
                                     std::string("<a>\xC3", 4), std::string("<<<>>>&&&;;;")})
        for (bool open : {false, true}) {
            W w;
            w.startElement(open ? "e" : kNone); // a null name opens nothing
            w.writeRaw(input.data(), static_cast<unsigned>(input.size())); w.writeAttribute("x", "1"); w.endElement();
            w.writeElement("z", "");
            const std::string out = w.str();
            EXPECT_TRUE(out.find("<z></z>") != std::string::npos && (!open || out.rfind("<e x=\"1\"", 0) == 0))
                << testing::PrintToString(input) << " gave " << out;
        }
}

} // namespace
