// tarn::XmlWriter: the printed form, the stack of open nodes, value cleaning, special content
// and the silent handling of misuse.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tarnxml/XmlWriter.h"

namespace {

using Script = std::function<void(tarn::XmlWriter&)>;

struct Case {
    const char* name;
    Script script;
    const char* expected;  // unformatted output of str()
};

std::string written(const Script& script)
{
    tarn::XmlWriter writer;
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

void workedExample(tarn::XmlWriter& w, bool withEmpty)
{
    w.startDocument(nullptr, nullptr, nullptr); w.startElement("list"); w.writeAttribute("count", "2");
    w.writeElement("item", "a & b"); w.writeElement("flag", true, false);
    if (withEmpty) {
        w.startElement("empty"); w.endElement();
    }
    w.endElement();
}

// --- Output form -----------------------------------------------------------------------------------

TEST(WriterOutput, UnformattedWorkedExampleIsOneLine)
{
    tarn::XmlWriter w;
    workedExample(w, false);
    EXPECT_EQ(w.str(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?><list count=\"2\"><item>a &amp; b</item>"
                       "<flag>True</flag></list>");
}

TEST(WriterOutput, FormattedWorkedExampleIsSixIndentedLines)
{
    tarn::XmlWriter w;
    w.setFormatted(true); w.setIndentString("  ");
    workedExample(w, true);
    EXPECT_EQ(w.str(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<list count=\"2\">\n"
                       "  <item>a &amp; b</item>\n"
                       "  <flag>True</flag>\n"
                       "  <empty />\n"
                       "</list>\n");
}

TEST(WriterOutput, FormattedWithEmptyIndentHasNoIndentationAndNoTabFallback)
{
    tarn::XmlWriter w;
    w.setFormatted(true);
    workedExample(w, true);
    EXPECT_EQ(w.str(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<list count=\"2\">\n<item>a &amp; b</item>\n"
                       "<flag>True</flag>\n<empty />\n</list>\n");
}

TEST(WriterOutput, IndentRepeatsPerLevelAndNullIndentKeepsThePreviousOne)
{
    tarn::XmlWriter w;
    w.setFormatted(true); w.setIndentString(std::string("\t-"));
    w.setIndentString(static_cast<const char*>(nullptr)); w.startElement("a"); w.startElement("b");
    w.writeElement("c", "x");
    EXPECT_EQ(w.str(), "<a>\n\t-<b>\n\t-\t-<c>x</c>\n\t-</b>\n</a>\n");
}

TEST(WriterOutput, EmptyWriterAndResetWriterPrintNothingInBothModes)
{
    for (bool formatted : {false, true}) {
        SCOPED_TRACE(formatted);
        tarn::XmlWriter w;
        w.setFormatted(formatted);
        EXPECT_EQ(w.str(), "");
        workedExample(w, true);
        w.startElement("open"); w.reset();
        EXPECT_EQ(w.str(), "");
        // The stack went with the document: a new element lands at the top level.
        w.writeElement("x", "1");
        EXPECT_EQ(w.str(), formatted ? "<x>1</x>\n" : "<x>1</x>");
    }
}

TEST(WriterOutput, ResetKeepsFormattingSettings)
{
    tarn::XmlWriter w;
    w.setFormatted(true); w.setIndentString("  "); w.startElement("a"); w.reset(); w.startElement("a");
    w.writeElement("b", "");
    EXPECT_EQ(w.str(), "<a>\n  <b></b>\n</a>\n");
}

TEST(WriterOutput, StrClosesOpenElementsAndChangesNothing)
{
    tarn::XmlWriter w;
    w.startElement("a"); w.startElement("b");
    const std::string first = w.str();
    EXPECT_EQ(first, "<a><b/></a>");
    EXPECT_EQ(w.str(), first);
    // Still open: the next write goes into b.
    w.writeText("t");
    EXPECT_EQ(w.str(), "<a><b>t</b></a>");
}

// --- Declaration -----------------------------------------------------------------------------------

TEST(WriterDeclaration, AttributesDefaultsAndTheStandaloneRule)
{
    runTable({
        {"three nulls", [](tarn::XmlWriter& w) { w.startDocument(nullptr, nullptr, nullptr); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"},
        {"standalone no is omitted", [](tarn::XmlWriter& w) { w.startDocument(nullptr, nullptr, "no"); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"},
        {"standalone No is written", [](tarn::XmlWriter& w) { w.startDocument(nullptr, nullptr, "No"); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"No\"?>"},
        {"standalone yes", [](tarn::XmlWriter& w) { w.startDocument(nullptr, nullptr, "yes"); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>"},
        {"standalone empty", [](tarn::XmlWriter& w) { w.startDocument(nullptr, nullptr, ""); },
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"\"?>"},
        {"given values", [](tarn::XmlWriter& w) { w.startDocument("1.1", "ISO-8859-1", "yes"); },
         "<?xml version=\"1.1\" encoding=\"ISO-8859-1\" standalone=\"yes\"?>"},
        {"one text", [](tarn::XmlWriter& w) { w.startDocument(std::string("1.0")); }, "<?xml version=\"1.0\"?>"},
        {"two texts", [](tarn::XmlWriter& w) { w.startDocument(std::string("1.0"), std::string("")); },
         "<?xml version=\"1.0\" encoding=\"\"?>"},
        {"three texts keep no", [](tarn::XmlWriter& w) {
             w.startDocument(std::string("1.0"), std::string("UTF-8"), std::string("no"));
         }, "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>"},
        {"three texts keep empty", [](tarn::XmlWriter& w) {
             w.startDocument(std::string(""), std::string(""), std::string(""));
         }, "<?xml version=\"\" encoding=\"\" standalone=\"\"?>"},
        {"after content it still comes first", [](tarn::XmlWriter& w) {
             w.writeElement("a", "1"); w.startDocument(nullptr, nullptr, nullptr);
         }, "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>1</a>"},
        {"a second call prepends another, newest first", [](tarn::XmlWriter& w) {
             w.startDocument(std::string("1")); w.startDocument(std::string("2"));
         }, "<?xml version=\"2\"?><?xml version=\"1\"?>"},
        {"nothing is pushed", [](tarn::XmlWriter& w) {
             w.startDocument(nullptr, nullptr, nullptr); w.writeAttribute("x", "1"); w.writeText("t");
         }, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"},
    });
}

// --- Elements, attributes, text -------------------------------------------------------------------

TEST(WriterContent, StackAttributesAndText)
{
    runTable({
        {"attribute after text lands in the start tag", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeText("t"); w.writeElement("c", "v"); w.writeAttribute("x", "1");
         }, "<e x=\"1\">t<c>v</c></e>"},
        {"repeated attribute name adds a second one", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeAttribute("x", "1"); w.writeAttribute("x", "2");
         }, "<e x=\"1\" x=\"2\"/>"},
        {"null attribute value gives an empty value", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeAttribute("x", static_cast<const char*>(nullptr));
         }, "<e x=\"\"/>"},
        {"null element value gives no content, empty gives an empty text", [](tarn::XmlWriter& w) {
             w.writeElement("n", static_cast<const char*>(nullptr)); w.writeElement("e", "");
         }, "<n/><e></e>"},
        {"second writeText replaces the first", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeText("a"); w.writeText(std::string("b"));
         }, "<e>b</e>"},
        {"text and attributes with nothing open are dropped", [](tarn::XmlWriter& w) {
             w.writeText("t"); w.writeAttribute("x", "1"); w.writeText(true, true);
         }, ""},
        {"top-level elements follow one another", [](tarn::XmlWriter& w) {
             w.writeElement("a", "1"); w.writeElement(std::string("b"), std::string("2"));
         }, "<a>1</a><b>2</b>"},
        {"endDocument returns to the top level and keeps the content", [](tarn::XmlWriter& w) {
             w.startElement("a"); w.startElement("b"); w.endDocument(); w.writeAttribute("lost", "1");
             w.writeElement("c", "");
         }, "<a><b/></a><c></c>"},
        {"end calls only pop", [](tarn::XmlWriter& w) {
             w.endElement(); w.startElement("a"); w.endElement(); w.endElement(); w.writeElement("b", "");
         }, "<a/><b></b>"},
        {"names are not checked", [](tarn::XmlWriter& w) {
             w.startElement("1 bad<"); w.writeAttribute("a b", "v");
         }, "<1 bad< a b=\"v\"/>"},
        {"escaping in text and attribute values", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeAttribute("q", "\"<&>'"); w.writeText("<&>\"'");
         }, "<e q=\"&quot;&lt;&amp;>'\">&lt;&amp;&gt;\"'</e>"},
        {"references in caller text are escaped, not cleaned", [](tarn::XmlWriter& w) {
             w.writeElement("e", "&#1;&#65;");
         }, "<e>&amp;#1;&amp;#65;</e>"},
    });
}

TEST(WriterContent, NullNamesAndTextsDoNothing)
{
    const char* const none = nullptr;
    runTable({
        {"startElement", [none](tarn::XmlWriter& w) {
             w.startElement(none); w.writeElement("a", "");
         }, "<a></a>"},
        {"writeElement", [none](tarn::XmlWriter& w) {
             w.writeElement(none, "v"); w.writeElement(none, std::string("v"));
             w.writeElement(none, true, true);
         }, ""},
        {"writeAttribute", [none](tarn::XmlWriter& w) {
             w.startElement("a"); w.writeAttribute(none, "v"); w.writeAttribute(none, std::string("v"));
             w.writeAttribute(none, false, false);
         }, "<a/>"},
        {"writeText", [none](tarn::XmlWriter& w) {
             w.startElement("a"); w.writeText("keep"); w.writeText(none);
         }, "<a>keep</a>"},
    });
}

TEST(WriterContent, TextOverloadsStopAtTheFirstNul)
{
    const std::string name("a\0b", 3);
    const std::string value("x\0y", 3);
    tarn::XmlWriter w;
    w.startElement(name); w.writeAttribute(name, value); w.writeElement(name, value); w.writeText(value);
    EXPECT_EQ(w.str(), "<a a=\"x\"><a>x</a>x</a>");
}

TEST(WriterContent, BooleanWords)
{
    struct Row {
        bool value;
        bool numeric;
        const char* word;
    };
    for (const Row& r : {Row{true, false, "True"}, Row{false, false, "False"}, Row{true, true, "1"},
                         Row{false, true, "0"}}) {
        SCOPED_TRACE(r.word);
        const std::string word(r.word);
        EXPECT_EQ(written([&](tarn::XmlWriter& w) { w.writeElement("e", r.value, r.numeric); }),
                  "<e>" + word + "</e>");
        EXPECT_EQ(written([&](tarn::XmlWriter& w) { w.writeElement(std::string("e"), r.value, r.numeric); }),
                  "<e>" + word + "</e>");
        EXPECT_EQ(written([&](tarn::XmlWriter& w) {
                      w.startElement("e"); w.writeAttribute("a", r.value, r.numeric);
                      w.writeAttribute(std::string("b"), r.value, r.numeric);
                      w.writeText(r.value, r.numeric);
                  }),
                  "<e a=\"" + word + "\" b=\"" + word + "\">" + word + "</e>");
    }
}

// --- Value cleaning ----------------------------------------------------------------------------------

TEST(WriterValues, StoredThroughTheGate)
{
    struct Row {
        const char* name;
        std::string value;
        std::string stored;      // as printed inside <e>...</e>
        std::string storedAttr;  // as printed in a="..." when that differs
    };
    const std::vector<Row> rows{
        {"valid multibyte unchanged", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", ""},
        {"invalid byte repaired", "a\xFF" "b", "a\xEF\xBF\xBD" "b", ""},
        {"surrogate repaired", "\xED\xA0\x80", "\xEF\xBF\xBD", ""},
        {"overlong repaired", "\xC0\x80x", "\xEF\xBF\xBDx", ""},
        {"control characters become ?", "a\x01" "b\x7F" "c", "a?b?c", ""},
        {"tab kept (pugixml escapes it in attributes)", "a\tb", "a\tb", "a&#09;b"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(written([&](tarn::XmlWriter& w) { w.writeElement("e", r.value); }), "<e>" + r.stored + "</e>");
        EXPECT_EQ(written([&](tarn::XmlWriter& w) {
                      w.startElement("e"); w.writeAttribute("a", r.value);
                  }),
                  "<e a=\"" + (r.storedAttr.empty() ? r.stored : r.storedAttr) + "\"/>");
        EXPECT_EQ(written([&](tarn::XmlWriter& w) {
                      w.startElement("e"); w.writeText(r.value);
                  }),
                  "<e>" + r.stored + "</e>");
        EXPECT_EQ(written([&](tarn::XmlWriter& w) { w.writeCDATA(r.value); }), "<![CDATA[" + r.stored + "]]>");
        EXPECT_EQ(written([&](tarn::XmlWriter& w) { w.writeComment(r.value); }), "<!--" + r.stored + "-->");
    }
}

TEST(WriterValues, MegabyteAttributeValues)
{
    const std::string valid(1 << 20, 'v');
    std::string invalid(1 << 20, 'w');
    for (size_t i = 0; i < invalid.size(); i += 4096)
        invalid[i] = '\x80';
    tarn::XmlWriter w;
    w.startElement("e"); w.writeAttribute("valid", valid); w.writeAttribute("invalid", invalid);
    const std::string out = w.str();
    std::string repaired = invalid;
    for (size_t i = repaired.size(); i-- > 0;)
        if (repaired[i] == '\x80')
            repaired.replace(i, 1, "\xEF\xBF\xBD");
    EXPECT_EQ(out, "<e valid=\"" + valid + "\" invalid=\"" + repaired + "\"/>");
}

// --- Special content ---------------------------------------------------------------------------------

TEST(WriterSpecial, CdataAndComments)
{
    runTable({
        {"null CDATA is an empty section", [](tarn::XmlWriter& w) { w.writeCDATA(static_cast<const char*>(nullptr)); },
         "<![CDATA[]]>"},
        {"CDATA is not escaped", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeCDATA("a<b&c");
         }, "<e><![CDATA[a<b&c]]></e>"},
        {"CDATA holding ]]> is split", [](tarn::XmlWriter& w) { w.writeCDATA(std::string("x]]>y")); },
         "<![CDATA[x]]]]><![CDATA[>y]]>"},
        {"comments sit in order at the top level", [](tarn::XmlWriter& w) {
             w.writeComment("one"); w.writeElement("a", ""); w.writeComment(std::string("two"));
             w.writeComment(static_cast<const char*>(nullptr));
         }, "<!--one--><a></a><!--two--><!---->"},
        {"startCDATA takes the last writeText", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.startCDATA(); w.writeText("x"); w.writeText("y"); w.endCDATA();
             w.writeAttribute("after", "1");
         }, "<e after=\"1\"><![CDATA[y]]></e>"},
        {"startComment takes no text", [](tarn::XmlWriter& w) {
             w.startComment(); w.writeText("x"); w.endComment(); w.writeElement("a", "");
         }, "<!----><a></a>"},
        {"endElement does not close a section; endCDATA does", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.startCDATA(); w.endElement(); w.endComment();
             w.writeText("still in the section"); w.endCDATA(); w.endCDATA(); w.writeText("element text");
         }, "<e><![CDATA[element text]]></e>"},
        {"nothing can be added under a section or comment", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.startComment(); w.writeElement("lost", "1"); w.writeCDATA("lost");
             w.writeComment("lost"); w.writeAttribute("lost", "1"); w.writeRaw("<lost/>"); w.endComment();
             w.writeElement("kept", "");
         }, "<e><!----><kept></kept></e>"},
        {"startElement under a section pushes an empty handle that swallows everything", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.startCDATA(); w.startElement("x"); w.endElement(); w.endCDATA();
             w.endComment(); w.writeText("lost"); w.writeElement("lost", ""); w.startCDATA(); w.endCDATA();
             w.endDocument(); w.writeElement("top", "");
         }, "<e><![CDATA[]]></e><top></top>"},
        {"references to control characters come out as ?", [](tarn::XmlWriter& w) {
             w.writeCDATA("a&#1;b&#65;c&#x1F;"); w.writeComment("&#0;&#9;");
         }, "<![CDATA[a?b&#65;c?]]><!--?&#9;-->"},
    });
}

TEST(WriterSpecial, RawMarkup)
{
    runTable({
        {"at the top level it replaces the document and becomes current", [](tarn::XmlWriter& w) {
             w.startDocument(nullptr, nullptr, nullptr); w.writeElement("gone", "");
             w.writeRaw("<r a=\"1\"><c>t</c></r>"); w.writeAttribute("b", "2"); w.writeElement("d", "");
             w.endElement(); w.writeElement("after", "");
         }, "<r a=\"1\" b=\"2\"><c>t</c><d></d></r><after></after>"},
        {"malformed at the top level leaves nothing current", [](tarn::XmlWriter& w) {
             w.writeRaw("<a><b></a>"); w.writeText("lost"); w.writeAttribute("lost", "1"); w.endDocument();
             w.reset(); w.writeRaw("not markup"); w.writeText("lost"); w.writeElement("top", "");
         }, "<top></top>"},
        {"inside an element: appended, comments and PIs dropped, entities resolved", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeRaw("<!--c--><?pi x?>");
             w.writeRaw(std::string("<a>x &amp; y</a>  <b\tv=\"1\t2\"/>"));
             w.writeText("t");
         }, "<e><a>x &amp; y</a><b v=\"1 2\"/>t</e>"},
        {"a control character reference in raw markup becomes ?", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeRaw("<a>&#1;&#x41;</a>");
         }, "<e><a>?A</a></e>"},
        {"zero length and null do nothing", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeRaw("<a/>", 0); w.writeRaw(static_cast<const char*>(nullptr));
             w.writeRaw(static_cast<const char*>(nullptr), 4); w.writeRaw(std::string());
         }, "<e/>"},
        {"the length decides how much is parsed", [](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeRaw("<a/><b/>", 4);
         }, "<e><a/></e>"},
    });
}

TEST(WriterSpecial, RawMarkupBadInputIsHarmless)
{
    const std::vector<std::string> inputs{
        std::string("<a>x</a>\0<b/>", 13),
        std::string("<a>\0</a>", 8),
        std::string("\0\0\0", 3),
        "<a>\xC3\xA9</a>",  // cut inside the two-byte character below
        "<a attr=\"\xFF\xFE\">\x01</a>",
        "<<<>>>&&&;;;",
        "<a><b><c>",
        "</a>",
        "<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>",
    };
    for (const std::string& input : inputs) {
        for (bool open : {false, true}) {
            SCOPED_TRACE(testing::PrintToString(input) + (open ? " open" : " top"));
            tarn::XmlWriter w;
            if (open)
                w.startElement("e");
            const unsigned int length = input == "<a>\xC3\xA9</a>" ? 4 : static_cast<unsigned int>(input.size());
            w.writeRaw(input.data(), length); w.writeAttribute("x", "1"); w.writeText("t"); w.endElement();
            w.writeElement("z", "");
            const std::string out = w.str();
            EXPECT_NE(out.find("<z></z>"), std::string::npos);
            if (open) {
                EXPECT_EQ(out.rfind("<e x=\"1\">", 0), 0u);
            }
        }
    }
}

TEST(WriterSpecial, Base64AndHex)
{
    const unsigned char bytes[] = {0x00, 0x61, 0x00, 0xFF, 0x10};
    const std::string withNuls("a\0b", 3);
    runTable({
        {"base64 of text counts every byte", [&](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeBase64(withNuls);
         }, "<e>YQBi</e>"},
        {"hex of text is upper case", [&](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeBinaryHex(withNuls);
         }, "<e>610062</e>"},
        {"offset and count select the bytes", [&](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeBinaryHex(bytes, 1, 3); w.startElement("f");
             w.writeBase64(bytes, 0, 5);
         }, "<e>6100FF<f>AGEA/xA=</f></e>"},
        {"char pointer overloads", [&](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeBase64(withNuls.data(), 1, 2); w.startElement("f");
             w.writeBinaryHex(withNuls.data(), 0, 2);
         }, "<e>AGI=<f>6100</f></e>"},
        {"second encoding replaces the first", [&](tarn::XmlWriter& w) {
             w.startElement("e"); w.writeBinaryHex(bytes, 0, 1); w.writeBinaryHex(bytes, 3, 1);
         }, "<e>FF</e>"},
        {"into a CDATA section", [&](tarn::XmlWriter& w) {
             w.startCDATA(); w.writeBase64(bytes, 3, 1);
         }, "<![CDATA[/w==]]>"},
        {"zero count, null data or nothing open do nothing", [&](tarn::XmlWriter& w) {
             w.writeBase64(bytes, 0, 5); w.writeBinaryHex(bytes, 0, 5); w.startElement("e");
             w.writeText("keep"); w.writeBase64(bytes, 0, 0); w.writeBinaryHex(bytes, 2, 0);
             w.writeBase64(static_cast<const unsigned char*>(nullptr), 0, 3);
             w.writeBinaryHex(static_cast<const char*>(nullptr), 0, 3); w.writeBase64(std::string());
             w.writeBinaryHex(std::string());
         }, "<e>keep</e>"},
    });
}

} // namespace
