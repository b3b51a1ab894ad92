// tarn::XmlWriter: the printed form, the stack of open nodes, value cleaning, special content
// and the silent handling of misuse.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tarnxml/XmlWriter.h"

namespace {

using W = tarn::XmlWriter;
struct Case {
    const char* name;
    std::function<void(W&)> script;
    std::string expected;  // unformatted output of str()
};

std::string written(const std::function<void(W&)>& script)
{
    W writer;
    script(writer);
    return writer.str();
}

void runTable(const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(written(c.script), c.expected);
    }
}

const char* const kNone = nullptr;
const std::string kDecl = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

TEST(Writer, WorkedExamplesAndRepeatableStr)
{
    for (bool formatted : {false, true}) {
        W w;
        w.setFormatted(formatted); w.setIndentString("  ");
        w.startDocument(nullptr, nullptr, nullptr); w.startElement("list"); w.writeAttribute("count", "2");
        w.writeElement("item", "a & b"); w.writeElement("flag", true, false);
        if (formatted)
            w.startElement("empty"), w.endElement();
        w.endElement();
        EXPECT_EQ(w.str(), formatted ? kDecl + "\n<list count=\"2\">\n  <item>a &amp; b</item>\n"
                                               "  <flag>True</flag>\n  <empty />\n</list>\n"
                                     : kDecl + "<list count=\"2\"><item>a &amp; b</item><flag>True</flag></list>");
    }
    W w;
    w.startElement("a"); w.startElement("b");
    EXPECT_EQ(w.str(), "<a><b/></a>");
    EXPECT_EQ(w.str(), "<a><b/></a>");
    w.writeText("t");  // still open: the next write goes into b
    EXPECT_EQ(w.str(), "<a><b>t</b></a>");
    w.reset();
    EXPECT_EQ(w.str(), "");
}

TEST(Writer, StartDocument)
{
    runTable({
        {"standalone no omitted", [](W& w) { w.startDocument(nullptr, nullptr, "no"); }, kDecl},
        {"standalone No written", [](W& w) { w.startDocument(nullptr, nullptr, "No"); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"No\"?>"},
        {"given values", [](W& w) { w.startDocument("1.1", "ISO-8859-1", ""); },
         "<?xml version=\"1.1\" encoding=\"ISO-8859-1\" standalone=\"\"?>"},
        {"one text", [](W& w) { w.startDocument(std::string("1.0")); }, "<?xml version=\"1.0\"?>"},
        {"two texts", [](W& w) { w.startDocument(std::string("1.0"), std::string("")); },
         "<?xml version=\"1.0\" encoding=\"\"?>"},
        {"three texts keep no", [](W& w) { w.startDocument(std::string("1.0"), std::string("UTF-8"), std::string("no")); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>"},
        {"after content, first; nothing pushed", [](W& w) {
             w.writeElement("a", "1"); w.startDocument(nullptr, nullptr, nullptr); w.writeAttribute("x", "1");
         }, kDecl + "<a>1</a>"},
        {"second call prepends, newest first", [](W& w) {
             w.startDocument(std::string("1")); w.startDocument(std::string("2"));
         }, "<?xml version=\"2\"?><?xml version=\"1\"?>"},
    });
}

TEST(Writer, ContentAndMisuse)
{
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
        {"boolean words", [](W& w) {
             w.startElement("e"); w.writeAttribute("a", true, false); w.writeAttribute(std::string("b"), false, false);
             w.writeAttribute("c", true, true); w.writeElement(std::string("d"), false, true); w.writeText(true, false);
         }, "<e a=\"True\" b=\"False\" c=\"1\"><d>0</d>True</e>"},
    });
}

TEST(Writer, ValuesStoredRepaired)
{
    const struct { std::string value, stored; } rows[] = {
        {"\xC3\xA9\xF0\x9F\x98\x80", "\xC3\xA9\xF0\x9F\x98\x80"}, {"a\xFF" "b", "a\xEF\xBF\xBD" "b"},
        {"\xED\xA0\x80", "\xEF\xBF\xBD"}, {"\xC0\x80x", "\xEF\xBF\xBDx"}, {"a\xC3", "a"}, {"a\x01" "b\x7F", "a?b?"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.value);
        EXPECT_EQ(written([&](W& w) { w.startElement("e"); w.writeAttribute("a", r.value); w.writeText(r.value);
                                      w.writeCDATA(r.value); w.writeComment(r.value); }),
                  "<e a=\"" + r.stored + "\">" + r.stored + "<![CDATA[" + r.stored + "]]><!--" + r.stored + "--></e>");
    }
    const std::string valid(1 << 20, 'v');
    std::string invalid(1 << 20, 'w'), repaired;
    for (size_t i = 0; i < invalid.size(); i += 4096)
        invalid[i] = '\x80';
    for (char c : invalid)
        repaired += c == '\x80' ? std::string("\xEF\xBF\xBD") : std::string(1, c);
    EXPECT_EQ(written([&](W& w) { w.startElement("e"); w.writeAttribute("v", valid); w.writeAttribute("i", invalid); }),
              "<e v=\"" + valid + "\" i=\"" + repaired + "\"/>");
}

TEST(Writer, CdataCommentsAndBinary)
{
    const unsigned char bytes[] = {0x00, 0x61, 0x00, 0xFF, 0x10};
    const std::string withNuls("a\0b", 3);
    runTable({
        {"CDATA unescaped, ]]> split, null empty", [](W& w) {
             w.startElement("e"); w.writeCDATA("a<b&c"); w.writeCDATA(std::string("x]]>y")); w.writeCDATA(kNone);
         }, "<e><![CDATA[a<b&c]]><![CDATA[x]]]]><![CDATA[>y]]><![CDATA[]]></e>"},
        {"startCDATA takes the last writeText; endElement does not close it", [](W& w) {
             w.startElement("e"); w.startCDATA(); w.writeText("x"); w.endElement(); w.endComment(); w.writeText("y");
             w.endCDATA(); w.writeAttribute("after", "1");
         }, "<e after=\"1\"><![CDATA[y]]></e>"},
        {"nothing can be added under a comment", [](W& w) {
             w.startElement("e"); w.startComment(); w.writeText("x"); w.writeElement("lost", "1"); w.writeCDATA("lost");
             w.writeComment("lost"); w.writeAttribute("lost", "1"); w.writeRaw("<lost/>"); w.endComment();
             w.writeComment("kept");
         }, "<e><!----><!--kept--></e>"},
        {"refused startElement pushes an empty handle", [](W& w) {
             w.startElement("e"); w.startCDATA(); w.startElement("x"); w.endElement(); w.endCDATA(); w.endComment();
             w.writeText("lost"); w.writeElement("lost", ""); w.endDocument(); w.writeElement("top", "");
         }, "<e><![CDATA[]]></e><top></top>"},
        {"references to controls become ?", [](W& w) { w.writeCDATA("a&#1;b&#65;c&#x1F;"); w.writeComment("&#0;&#9;"); },
         "<![CDATA[a?b&#65;c?]]><!--?&#9;-->"},
        {"base64 and hex count NULs", [&](W& w) {
             w.startElement("e"); w.writeBase64(withNuls); w.startElement("f"); w.writeBinaryHex(withNuls);
             w.startElement("g"); w.writeBinaryHex(bytes, 1, 3); w.startElement("h"); w.writeBase64(bytes, 0, 5);
         }, "<e>YQBi<f>610062<g>6100FF<h>AGEA/xA=</h></g></f></e>"},
        {"second encoding replaces; zero count does nothing", [&](W& w) {
             w.startElement("e"); w.writeBinaryHex(bytes, 0, 1); w.writeBase64(withNuls.data(), 1, 2);
             w.writeBinaryHex(bytes, 2, 0); w.writeBase64(static_cast<const unsigned char*>(nullptr), 0, 3);
         }, "<e>AGI=</e>"},
    });
}

TEST(Writer, RawMarkup)
{
    runTable({
        {"top level: replaces the document and becomes current", [](W& w) {
             w.startDocument(nullptr, nullptr, nullptr); w.writeElement("gone", ""); w.writeRaw("<r a=\"1\"><c>t</c></r>");
             w.writeAttribute("b", "2"); w.writeElement("d", ""); w.endElement(); w.writeElement("after", "");
         }, "<r a=\"1\" b=\"2\"><c>t</c><d></d></r><after></after>"},
        {"malformed at the top level leaves nothing current", [](W& w) {
             w.writeRaw("<a><b></a>"); w.writeText("lost"); w.endDocument(); w.reset(); w.writeRaw("not markup");
             w.writeText("lost"); w.writeElement("top", "");
         }, "<top></top>"},
        {"inside: appended, comments dropped, entities resolved", [](W& w) {
             w.startElement("e"); w.writeRaw("<!--c-->"); w.writeRaw(std::string("<a>x &amp; y</a><b>&#1;</b>"));
             w.writeText("t");
         }, "<e><a>x &amp; y</a><b>?</b>t</e>"},
        {"length 0, null, and the length decides", [](W& w) {
             w.startElement("e"); w.writeRaw("<a/>", 0); w.writeRaw(kNone); w.writeRaw(kNone, 4); w.writeRaw("<a/><b/>", 4);
         }, "<e><a/></e>"},
    });
    // Bad input is harmless: embedded NULs, a cut multi-byte character, garbage.
    for (const std::string& input : {std::string("<a>x</a>\0<b/>", 13), std::string("<a>\0</a>", 8),
                                     std::string("<a>\xC3", 4), std::string("<<<>>>&&&;;;")}) {
        for (bool open : {false, true}) {
            SCOPED_TRACE(testing::PrintToString(input) + (open ? " open" : " top"));
            W w;
            if (open)
                w.startElement("e");
            w.writeRaw(input.data(), static_cast<unsigned>(input.size())); w.writeAttribute("x", "1"); w.endElement();
            w.writeElement("z", "");
            const std::string out = w.str();
            EXPECT_NE(out.find("<z></z>"), std::string::npos);
            EXPECT_TRUE(!open || out.rfind("<e x=\"1\"", 0) == 0) << out;
        }
    }
}

} // namespace
