// The tarnxml program, driven as a user drives it: files in a temporary directory, standard
// input, exit codes, standard output and standard error.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

struct Result { int code; std::string out, err; };

// Single quotes for the shell; a quote inside becomes '\''.
std::string quote(std::string word) {
    for (std::size_t at = word.find('\''); at != std::string::npos; at = word.find('\'', at + 4))
        word.replace(at, 1, "'\\''");
    return "'" + word + "'";
}

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override { if (std::string(TARNXML_TOOL_PATH).empty()) GTEST_SKIP() << "the tarnxml tool is not built"; }

    // Runs the tool with `args` and `input` on standard input. A crash shows as code -1.
    // TARNXML_TOOL in the environment names another program to drive (an older build, say).
    static std::string tool() {
        const char* other = std::getenv("TARNXML_TOOL");
        return other != nullptr && *other != '\0' ? other : TARNXML_TOOL_PATH;
    }
    Result run(const std::vector<std::string>& args, const std::string& input = "",
               const std::string& program = tool()) {
        const std::string io = dir.write(".in", input);
        std::string line = quote(program) + " <" + quote(io) + " >" + quote(io + ".out") + " 2>" + quote(io + ".err");
        for (const std::string& arg : args)
            line += ' ' + quote(arg);
        const int status = std::system(line.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, tarntest::readFile(io + ".out"), tarntest::readFile(io + ".err")};
    }

    tarntest::TempDir dir;
};

// The shared test corpus and the tool's UTF-16 documents beside it.
std::vector<std::string> corpus() {
    std::vector<std::string> files = tarntest::filesIn(std::string(TARNXML_SOURCE_DIR) + "/tests/data/corpus");
    for (const std::string& file : tarntest::filesIn(std::string(TARNXML_SOURCE_DIR) + "/tests/data/corpus-utf16"))
        files.push_back(file);
    return files;
}

const char* const kDoc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<shop name=\"Laden\">\n"
                         "  <item id=\"1\" kind=\"fruit\">Äpfel &amp; Birnen</item>\n  <item id=\"2\">Brot<note>frisch</note></item>\n"
                         "  <box><item id=\"3\"/></box>\n</shop>\n";

TEST_F(ToolTest, EverySubcommandsOutputAndExitCodes) {
    // Standard output is compared exactly, standard error must contain `err`.
    struct Case { std::vector<std::string> args; int code; std::string out, err, input = ""; };
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", ed0 = head + "<r><a k=\"1\">x</a><b><c/></b><a/></r>\n";
    const std::string doc = dir.write("doc.xml", kDoc), bad = dir.write("bad.xml", "<a>\n  <b>\n</a>\n"), ed = dir.write("ed.xml", ed0);
    const std::string missing = dir.path() + "/missing.xml", docOk = doc + ": ok, 6 elements\n", mismatch = "3:5: Opening and ending tag mismatch: b line 2 and a";
    const std::string repaired = dir.write("repaired.xml", "<a>caf\xC3 \x01</a>"), small = dir.write("small.xml", "<r a=\"1\"><b>t\tx</b><c/><!--n--></r>");
    const std::string prolog = dir.write("p.xml", "<?xml version=\"1.0\"?>\n<!DOCTYPE r>\n<!-- kept -->\n<r><a>1</a><a>2</a></r>\n");
    const Case cases[] = {
        {{}, 2, "", "subcommand"}, {{"frobnicate"}, 2, "", "unknown subcommand 'frobnicate'"}, {{"check", "--bogus", doc}, 2, "", "--bogus"},
        {{"select", doc}, 2, "", "--xpath"}, {{"select", "--text", "--count", "-x", "//a", doc}, 2, "", "excludes"}, {{"check"}, 2, "", "FILE"},
        // check: the worst verdict gives the exit code.
        {{"check", doc}, 0, docOk, ""}, {{"check", "-"}, 0, "-: ok, 1 element\n", "", "<r/>"}, {{"check", bad}, 1, "", bad + ":" + mismatch + "\n"},
        {{"check", doc, bad}, 1, docOk, bad + ":3:5:"}, {{"check", missing, bad}, 2, "", bad + ":3:5:"}, {{"check", "/"}, 2, "", "/: is a directory"},
        {{"check", "--recover", bad}, 0, bad + ": ok, 2 elements, recovered from errors (first at " + mismatch + ")\n", ""},
        {{"check", repaired}, 1, "", repaired + ":1:7: Input is not proper UTF-8, indicate encoding ! Bytes: 0xC3 0x20 0x01 0x3C\n" + repaired + ":1:9: PCDATA invalid Char value 1\n"},
        {{"check", "--repair", repaired}, 0, repaired + ": ok, 1 element, invalid UTF-8 or control characters repaired\n", ""},
        {{"check", "-"}, 1, "", "-:1:1: Document is empty"}, {{"check", "-"}, 1, "", "-:1:5: Extra content", "<a/><b/>"},
        {{"check", missing}, 2, "", missing + ": No such file or directory"},
        {{"select", "-x", "//item", doc}, 0, "<item id=\"1\" kind=\"fruit\">Äpfel &amp; Birnen</item>\n<item id=\"2\">Brot<note>frisch</note></item>\n<item id=\"3\"/>\n", ""},
        {{"select", "--text", "-x", "/shop/item", doc}, 0, "Äpfel & Birnen\nBrot\n", ""}, {{"select", "--attr", "kind", "-x", "//item[@id!='2']", doc}, 0, "fruit\n", ""},
        {{"select", "--count", "-x", "//item", doc}, 0, "3\n", ""}, {{"select", "--count", "-x", "//nothing", doc}, 1, "0\n", ""},
        {{"select", "-x", "//nothing", doc}, 1, "", ""}, {{"select", "--attr", "missing", "-x", "//item", doc}, 1, "", ""},
        {{"select", "-x", "count(//item) * 2", doc}, 0, "6\n", ""}, {{"select", "-x", "//item/@id", doc}, 0, "1\n2\n3\n", ""},
        {{"select", "-x", "//box/item"}, 0, "<item id=\"3\"/>\n", "", kDoc}, {{"select", "-x", "//a"}, 1, "", "-:1:", "<a><b></a>"},
        {{"select", "-x", "//item[@id=", doc}, 2, "", "invalid XPath expression '//item[@id='"},
        {{"select", "-x", "nosuch(//item)", doc}, 2, "", "cannot evaluate XPath expression 'nosuch(//item)'"},
        // edit: actions apply in order to each selected element; c lies inside b, so deleting b takes c.
        {{"edit", "-x", "//a", "--set-text", "T", "--set-attr", "k=v=w", ed}, 0, head + "<r><a k=\"v=w\">T</a><b><c/></b><a k=\"v=w\">T</a></r>\n", ""},
        {{"edit", "-x", "/r/a[1]", "--del-attr", "k", "--append", "n=1 & 2", "-x", "//c", "--set-attr", "z=<", ed}, 0,
         head + "<r><a>x<n>1 &amp; 2</n></a><b><c z=\"&lt;\"/></b><a/></r>\n", ""},
        {{"edit", "-x", "//b|//c", "--delete", "--set-text", "gone", ed}, 0, head + "<r><a k=\"1\">x</a><a/></r>\n", ""},
        {{"edit", "-x", "//a[1]", "--delete", "-x", "/r", "--append", "b=<&>", prolog}, 0,
         "<?xml version=\"1.0\"?>\n<!DOCTYPE r>\n<!-- kept -->\n<r><a>2</a><b>&lt;&amp;&gt;</b></r>\n", ""},
        {{"edit", "-x", "/r", "--delete", ed}, 0, ed0, "root element cannot be deleted"}, {{"edit", "-x", "//zzz", "--delete", ed}, 0, ed0, "'//zzz' selects nothing"},
        {{"edit", "--set-text", "x", ed}, 2, "", "--set-text needs a preceding -x"}, {{"edit", "-x", "//a", "--append", "novalue", ed}, 2, "", "NAME=VALUE"},
        {{"edit", "-x", "//a[", "--delete", ed}, 2, "", "'//a['"}, {{"edit", "-x", "//a", "--delete", "--in-place"}, 2, "", "standard input", ed0},
        {{"format", small}, 0, "<?xml version=\"1.0\"?>\n<r a=\"1\">\n  <b>t\tx</b>\n  <c/>\n  <!--n-->\n</r>\n", ""}, {{"format"}, 1, "", "-:1:", "<r><unclosed></r>"},
        {{"format", "--indent", "\t", small}, 0, "<?xml version=\"1.0\"?>\n<r a=\"1\">\n\t<b>t\tx</b>\n\t<c/>\n\t<!--n-->\n</r>\n", ""},
        {{"format", "--indent", "x", small}, 2, "", "spaces and tabs only"},
        {{"format", "--raw", small}, 0, "<?xml version=\"1.0\"?>\n<r a=\"1\"><b>t\tx</b><c/><!--n--></r>\n", ""}, {{"edit", "-x", "//a", "--delete"}, 1, "", "-:1:", "<r><a></r>"},
        {{"stream", small}, 0, "0 element r\n1 attribute a \"1\"\n1 element b\n2 text #text \"t\\tx\"\n1 end-element b\n1 element c empty\n1 comment #comment \"n\"\n0 end-element r\n", ""},
        {{"stream", "-"}, 0, "0 element r\n1 attribute q \"\\\"\"\n1 text #text \"line1\\nline2\\\\\"\n1 cdata #cdata-section \"<x>\"\n0 end-element r\n", "",
         "<r q='\"'>line1\nline2\\<![CDATA[<x>]]></r>"},
        {{"stream", "--skip-blanks", "-"}, 0, "0 element r\n1 element a empty\n0 end-element r\n", "", "<r>\n  <a/>\n</r>"},
        {{"stream", "-"}, 1, "", "-:1:", "<r><a></r>"}, {{"stream", "-"}, 1, "", "-:1:1: "}, {{"stream", "/"}, 2, "", "is a directory"},
        // encode and decode: the conversions themselves are the library's; here the bytes in and out.
        {{"encode"}, 0, "a&lt;&#xA;&#xE9;", "", "a<\n\xC3\xA9"}, {{"encode"}, 1, "", "not valid UTF-8 (first invalid byte at offset 2)", "ok\xC3("},
        {{"encode"}, 0, "", ""}, {{"decode"}, 0, "<\n\xC3\xA9&bogus;", "", "&lt;\n&#233;&bogus;"}, {{"demo", "--sample", missing}, 2, "", missing + ": No such"},
        {{"write"}, 0, "<?xml version=\"1.0\" encoding=\"UTF-8\"?><list n=\"2\"><item>a &amp; b</item><empty/></list>\n", "",
         "declaration\n# a comment\nstart list\nattr n 2\nelement item a & b\nstart empty\nend\n"},
        {{"write", "--indent", "  "}, 0, "<r>one\ntwo<![CDATA[<raw>]]><!--c-->\n</r>\n", "", "start r\ntext one\\ntwo\ncdata <raw>\ncomment c\n"},
        {{"write", "--indent", "  "}, 0, "<r>\n  <s>\n    <t>v</t>\n  </s>\n</r>\n", "", "start r\nstart s\nelement t v\n"},
        {{"write"}, 1, "", "-:3: 'end' without an open element", "start r\nend\nend\n"}, {{"write"}, 1, "", "-:1: 'attr' outside an element", "attr x 1\n"},
        {{"write"}, 1, "", "-:3: a second root element", "start r\nend\nstart s\n"}, {{"write"}, 1, "", "-:1: unknown keyword 'begin'", "begin r\n"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("{}", fmt::join(c.args, " ")));
        const Result result = run(c.args, c.input);
        EXPECT_EQ(c.code, result.code) << result.err;
        EXPECT_EQ(c.out, result.out);
        EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
    }
}

// What the tool once did silently with exit 0, each case named after what broke; and the edit,
// select, write and codec additions that came with the fixes. Nothing is printed when a run is refused.
TEST_F(ToolTest, NeverWritesAlteredOrBrokenData) {
    struct Case { const char* what; std::vector<std::string> args; int code; std::string out, err, input = ""; };
    const std::string head = "<?xml version=\"1.0\"?>\n", nested = "<r><a><b/></a></r>";
    const std::string ns = dir.write("ns.xml", "<r xmlns=\"urn:d\" xmlns:xl=\"urn:xlink\" xml:lang=\"de\"><a xl:href=\"#1\" href=\"plain\">t<![CDATA[c]]></a>"
                                               "<xl:b href=\"#2\"/></r>");
    const std::string two = dir.write("two.xml", "<r><a>2</a></r>");
    const Case cases[] = {
        {"a later -x giving a number reused the earlier selection", {"edit", "-x", "//b", "--set-attr", "q=1", "-x", "count(//a)", "--delete"}, 2, "",
         "-x 'count(//a)' gives a number (1)", nested},
        {"a string or boolean -x too", {"edit", "-x", "'s'", "--delete"}, 2, "", "'s'", nested}, {"", {"edit", "-x", "1=1", "--delete"}, 2, "", "boolean", nested},
        {"an -x selecting nothing failed the edit", {"edit", "-x", "//zz", "--delete", "-x", "//b", "--delete"}, 0, head + "<r><a/></r>\n", "'//zz' selects nothing", nested},
        {"--set-text kept CDATA and later text", {"edit", "-x", "//a", "--set-text", "new"}, 0, head + "<r><a>new</a><c/></r>\n", "", "<r><a>x<![CDATA[old]]>y<b/></a><c/></r>"},
        {"--set-text on nested selections", {"edit", "-x", "//*", "--set-text", "z"}, 0, head + "<r>z</r>\n", "", nested},
        {"--set-text on an attribute and a text", {"edit", "-x", "//@k|//a/text()", "--set-text", "<&>"}, 0, head + "<r k=\"&lt;&amp;&gt;\"><a>&lt;&amp;&gt;</a></r>\n", "", "<r k='1'><a>t</a></r>"},
        {"--append name not checked", {"edit", "-x", "/r", "--append", "<x=3"}, 2, "", "'<x' is not an XML name", nested},
        {"--set-attr name not checked", {"edit", "-x", "/r", "--set-attr", "1 x=3"}, 2, "", "'1 x' is not an XML name", nested},
        {"--rename name not checked", {"edit", "-x", "//a", "--rename", "a b"}, 2, "", "not an XML name", nested},
        {"an unbound prefix", {"edit", "-x", "//a", "--set-attr", "p:k=1"}, 2, "", "prefix 'p'", nested},
        {"a control character in a value", {"edit", "-x", "//a", "--set-text", "a\x01"}, 2, "", "control character", nested},
        {"rename and insert", {"edit", "-x", "//a", "--rename", "c", "--insert-before", "p=1", "--insert-after", "q=2", "-x", "//b", "--insert-after", "s="}, 0,
         head + "<r><p>1</p><c><b/><s/></c><q>2</q></r>\n", "", nested},
        {"nothing beside the root", {"edit", "-x", "/r", "--insert-before", "p=1"}, 2, "", "one root element", nested},
        {"prefixed names use the document's prefixes", {"edit", "-x", "//_:a", "--set-attr", "xl:href=#9", "--del-attr", "href", "--rename", "xl:c", "--append", "xl:d=1", ns}, 0,
         head + "<r xmlns=\"urn:d\" xmlns:xl=\"urn:xlink\" xml:lang=\"de\"><xl:c xl:href=\"#9\">t<![CDATA[c]]><xl:d>1</xl:d></xl:c><xl:b href=\"#2\"/></r>\n", ""},
        {"--attr could not read xml:lang", {"select", "--attr", "xml:lang", "-x", "/*", ns}, 0, "de\n", ""},
        {"--attr could not read xlink:href", {"select", "-N", "xlink=urn:xlink", "--attr", "xlink:href", "-x", "//_:a", ns}, 0, "#1\n", ""},
        {"--attr href matched xl:href", {"select", "--attr", "href", "-x", "//*", ns}, 0, "plain\n#2\n", ""},
        {"attributes and text selected by XPath were refused", {"select", "-x", "//@xl:href|//_:a/text()", ns}, 0, "#1\nt\nc\n", ""},
        {"the document node", {"select", "-x", "/", two}, 0, "<?xml version=\"1.0\"?>\n<r><a>2</a></r>\n", ""},
        {"--value gives all text, CDATA included", {"select", "--value", "-x", "//_:a", ns}, 0, "tc\n", ""},
        {"several files, prefixed like grep", {"select", "-x", "//a/text()", two, two}, 0, two + ":2\n" + two + ":2\n", ""},
        {"", {"select", "--count", "-x", "//a", two, ns}, 0, two + ":1\n" + ns + ":0\n", ""},
        {"a malformed -N", {"select", "-N", "p", "-x", "/", ns}, 2, "", "PREFIX=URI"},
        {"a runaway expression", {"select", "--max-steps", "50", "-x", "//*[count(//*) > 0]", ns}, 2, "", "stopped after 50 steps"},
        {"format: &# in a comment swallowed markup", {"format"}, 0, head + "<r>\n  <!-- see &# below -->\n  <a>keep me</a>\n  <c>x;y</c>\n</r>\n", "",
         "<r><!-- see &# below --><a>keep me</a><c>x;y</c></r>"},
        {"format: whitespace content, entity references and the prolog were lost", {"format"}, 0,
         head + "<!DOCTYPE r [\n<!ENTITY e \"E\">\n]>\n<!-- c -->\n<r><a>  </a>&e;</r>\n", "", head + "<!DOCTYPE r [<!ENTITY e \"E\">]>\n<!-- c -->\n<r><a>  </a>&e;</r>\n"},
        {"format: a blank from a character reference was dropped", {"format"}, 0, head + "<a> <b/></a>\n", "", "<a>&#32;<b/></a>"},
        {"--count of an expression that is not a node set", {"select", "--count", "-x", "1 + 1", two}, 0, "2\n", ""},
        {"decode wrote NUL for &#0;", {"decode"}, 1, "", "byte 2: a character reference decodes to a NUL byte", "ab&#0;"},
        {"decode wrote NUL for &#;", {"decode"}, 1, "", "byte 0:", "&#;"}, {"decode wrote NUL for &#x;", {"decode"}, 1, "", "byte 1:", "a&#x;"},
        {"decode passed invalid UTF-8", {"decode"}, 1, "", "byte 1: input is not valid UTF-8", "a\xff"},
        {"encode stopped at NUL", {"encode"}, 1, "", "byte 2: input holds a NUL byte", std::string("ab\0c", 4)},
        {"write: cdata &# swallowed markup", {"write"}, 1, "", "-:2: \"&#\" in a cdata", "start r\ncdata see &# below\nelement c x;y\n"},
        {"write: comment &#", {"write"}, 1, "", "-:1: \"&#\" in a comment", "comment &#1;\nstart r\n"},
        {"write: cdata ]]>", {"write"}, 1, "", "-:2: a CDATA section cannot hold", "start r\ncdata a]]>b\n"},
        {"write: comment --", {"write"}, 1, "", "-:2: a comment cannot hold", "start r\ncomment a--b\n"},
        {"write: start 1bad", {"write"}, 1, "", "-:1: '1bad' is not an XML name", "start 1bad\n"},
        {"write: attr name", {"write"}, 1, "", "-:2: 'a=b' is not an XML name", "start r\nattr a=b 1\n"},
        {"write: control character repaired", {"write"}, 1, "", "-:2: invalid UTF-8", "start r\ntext a\x01\n"},
        {"write: a second attribute", {"write"}, 1, "", "-:3: a second attribute", "start r\nattr a 1\nattr a 2\n"},
        {"write: a second text replaced the first", {"write"}, 1, "", "-:3: a second text", "start r\ntext a\ntext b\n"},
        {"write: undeclared prefix", {"write"}, 1, "", "-:2: the prefix 'p'", "start r\nstart p:s\nend\n"},
        {"write: declared prefix", {"write"}, 0, "<p:r xmlns:p=\"urn:p\"><p:s/></p:r>\n", "", "start p:r\nattr xmlns:p urn:p\nstart p:s\n"},
        {"write: no root", {"write"}, 1, "", "no element written", "comment c\n"},
        {"write: mislabelled encoding", {"write"}, 1, "", "-:1: the tool writes UTF-8", "declaration 1.0 ISO-8859-1\nstart r\n"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("{}: {}", c.what, fmt::join(c.args, " ")));
        const Result result = run(c.args, c.input);
        EXPECT_EQ(c.code, result.code) << result.err;
        EXPECT_EQ(c.out, result.out);
        EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
    }
}

// Text in other encodings is read and written back in its own encoding; text that does not
// decode is refused with its byte offset and an --in-place file stays as it was.
TEST_F(ToolTest, EncodingsAreKeptOrRefused) {
    const std::string latin1 = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<r><a>Gr\xF6\xDF" "e</a></r>\n";
    const std::string path = dir.write("latin1.xml", latin1);
    const Result edited = run({"edit", "--in-place", "-x", "//a", "--set-attr", "k=\xC3\xA4", path});
    EXPECT_EQ(0, edited.code) << edited.err;
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<r><a k=\"\xE4\">Gr\xF6\xDF" "e</a></r>\n", tarntest::readFile(path));
    EXPECT_EQ("Gr\xC3\xB6\xC3\x9F" "e\n", run({"select", "--text", "-x", "//a", path}).out);
    const std::string utf16 = std::string("\xFF\xFE<\0r\0>\0\xE4\0<\0/\0r\0>\0", 18);
    const Result read16 = run({"select", "--value", "-x", "/r"}, utf16);
    EXPECT_TRUE(read16.code == 0 && read16.out == "\xC3\xA4\n") << read16.err;
    const std::string bad = "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\n<r>\x81</r>\n", badPath = dir.write("bad1252.xml", bad);
    for (const std::vector<std::string>& args : {std::vector<std::string>{"edit", "--in-place", "-x", "/r", "--set-text", "x", badPath},
                                                 {"format", badPath}, {"select", "-x", "/r", badPath}, {"check", badPath}}) {
        const Result refused = run(args);
        EXPECT_EQ(1, refused.code) << args.front();
        EXPECT_NE(std::string::npos, refused.err.find(badPath + ": byte 49: ")) << refused.err;
        EXPECT_EQ(bad, tarntest::readFile(badPath));
    }
}

// check is a well-formedness check (what xmllint --noout calls an error is one, every error on a
// line of its own); stream reads the same way; the limits hold for every subcommand until --huge.
TEST_F(ToolTest, CheckAndStreamAreStrictAndLimitsHoldEverywhere) {
    struct Case { const char* what; std::vector<std::string> args; int code; std::string out, err, input; };
    const std::string deep = [] { std::string d; for (int i = 0; i < 300; ++i) d += "<d>"; for (int i = 0; i < 300; ++i) d += "</d>"; return d; }();
    const std::string big = "<r>" + std::string(12 << 20, 'x') + "</r>", deepFile = dir.write("deep.xml", deep), bigFile = dir.write("big.xml", big);
    const Case cases[] = {
        {"check called control characters ok", {"check", "-"}, 1, "", "-:1:4: PCDATA invalid Char value 1", "<a>\x01</a>"},
        {"check called invalid UTF-8 ok", {"check", "-"}, 1, "", "-:1:", "<a>caf\xC3</a>"},
        {"check stopped at a NUL byte", {"check", "-"}, 1, "", "-:1:", std::string("<a>\0</a>", 8)},
        {"--repair shows the library's repair", {"check", "--repair", "-"}, 0, "-: ok, 1 element, invalid UTF-8 or control characters repaired\n", "", "<a>\x01</a>"},
        {"every error on a line of its own", {"check", "-"}, 1, "", "-:1:15: Attribute x redefined\n-:1:", "<a x='1' x='2'><b></a>"},
        {"stream stopped silently at NUL", {"stream", "-"}, 1, "", "-:1:", std::string("\0<<<", 4)},
        {"stream of control characters", {"stream", "-"}, 1, "", "-:1:4: ", "<a>\x01</a>"},
        {"depth limit in check", {"check", deepFile}, 1, "", deepFile + ":1:", ""},
        {"depth limit in select", {"select", "--count", "-x", "//d", deepFile}, 1, "", deepFile + ":1:", ""},
        {"depth limit in stream", {"stream", deepFile}, 1, "", deepFile + ":1:", ""},
        {"--huge lifts it", {"select", "--huge", "--count", "-x", "//d", deepFile}, 0, "300\n", "", ""},
        {"stream rejected a text node check accepted", {"check", bigFile}, 1, "", bigFile + ": a text node is longer than libxml2's limit", ""},
        {"", {"stream", bigFile}, 1, "", bigFile + ":1:", ""},
        {"", {"check", "--huge", bigFile}, 0, bigFile + ": ok, 1 element\n", "", ""},
        {"", {"stream", "--huge", "--skip-blanks", bigFile}, 0, "", "", ""}};
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("{}: {}", c.what, fmt::join(c.args, " ")));
        const Result result = run(c.args, c.input);
        EXPECT_EQ(c.code, result.code) << result.err;
        if (c.args.front() != "stream") {
            EXPECT_EQ(c.out, result.out.substr(0, std::min(result.out.size(), std::size_t(4096))));
        }
        EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
    }
}

TEST_F(ToolTest, HelpVersionAndDemo) {
    const Result help = run({"--help"}), version = run({"--version"});
    EXPECT_TRUE(help.code == 0 && version.code == 0 && version.out.find("tarnxml ") == 0) << version.out;
    for (const char* command : {"check", "select", "edit", "format", "stream", "encode", "decode", "write", "demo"}) {
        const Result sub = run({command, "--help"});
        EXPECT_TRUE(sub.code == 0 && sub.out.find(std::string("tarnxml ") + command) != std::string::npos &&
                    help.out.find(command) != std::string::npos) << command;
    }
    const Result demo = run({"demo", "--sample", std::string(TARNXML_SOURCE_DIR) + "/examples/sample.xml"});
    EXPECT_EQ(0, demo.code) << demo.err;
    for (const char* step : {"$ tarnxml check", "$ tarnxml select", "$ tarnxml edit", "$ tarnxml format",
                             "$ tarnxml stream", "| tarnxml write", "| tarnxml encode", "| tarnxml decode"})
        EXPECT_NE(std::string::npos, demo.out.find(step)) << step;
}

// --in-place writes through a temporary file renamed over the old one: a symbolic link is
// followed (the target is replaced, the link stays), the mode is kept, nothing is left behind. A
// refused edit, a name so long that no temporary name fits beside it (even for root) and a
// read-only directory (for everyone else) leave the file as it was.
TEST_F(ToolTest, EditInPlaceReplacesTheFileOrLeavesItUntouched) {
    const std::string doc = "<r><a>x</a></r>", locked = dir.path() + "/locked", link = dir.path() + "/link.xml";
    std::filesystem::create_directory(locked);
    const std::string path = dir.write("locked/doc.xml", doc);
    std::filesystem::permissions(path, std::filesystem::perms(0604));
    std::filesystem::create_symlink("locked/doc.xml", link);
    const Result done = run({"edit", "--in-place", "-x", "//a", "--set-text", "y", link});
    EXPECT_TRUE(done.code == 0 && done.out.empty()) << done.err;
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<r><a>y</a></r>\n", tarntest::readFile(path));
    EXPECT_EQ(std::filesystem::perms(0604), std::filesystem::status(path).permissions());
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(locked), std::filesystem::directory_iterator()));
    std::vector<std::pair<std::string, const char*>> refused = {{link, "<x=3"}, {dir.write(std::string(250, 'n') + ".xml", doc), "b=1"}};
    if (::geteuid() != 0)
        refused.emplace_back(path, "b=1");
    for (const auto& [target, append] : refused) {
        if (target != link) // the refused edit first: it must not rely on a failing write
            std::filesystem::permissions(locked, std::filesystem::perms(0555));
        const std::string before = tarntest::readFile(target);
        const Result result = run({"edit", "--in-place", "-x", "//a", "--append", append, target});
        EXPECT_EQ(2, result.code) << result.err;
        EXPECT_TRUE(target == link || result.err.find("left unchanged") != std::string::npos) << result.err;
        EXPECT_EQ(before, tarntest::readFile(target));
    }
    std::filesystem::permissions(locked, std::filesystem::perms(0755));
    if (::geteuid() == 0)
        GTEST_SKIP() << "root can write into a read-only directory";
}

// Nothing lost: on every corpus document (namespaces, a DTD with entities, CDATA, comments and
// PIs outside the root, mixed content, Latin-1, Windows-1252, UTF-16) a no-op edit and
// format --raw give output with the same canonical form as the input, and format prints byte
// for byte what xmllint --format (and xmllint, for --raw) prints.
TEST_F(ToolTest, NothingLostOnTheCorpus) {
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "xmllint is missing";
    const auto lint = [&](const std::vector<std::string>& args) { return run(args, "", "xmllint"); };
    ASSERT_GE(corpus().size(), 10u);
    int written = 0;
    for (const std::string& path : corpus()) {
        SCOPED_TRACE(path);
        const Result canonical = lint({"--c14n", path});
        ASSERT_EQ(0, canonical.code) << canonical.err;
        for (const std::vector<std::string>& args : {std::vector<std::string>{"edit", "-x", "/tarnxml-nothing", "--delete", path},
                                                     {"format", "--raw", path}, {"format", path}}) {
            SCOPED_TRACE(args.front() + " " + args[1]);
            const Result printed = run(args);
            ASSERT_EQ(0, printed.code) << printed.err;
            if (args[1] != path) {   // formatting adds whitespace between elements: only --raw and edit keep the canonical form
                const std::string copy = dir.write("out" + std::to_string(++written) + ".xml", printed.out);
                EXPECT_EQ(canonical.out, lint({"--c14n", copy}).out);
            }
            if (args.front() == "format") {
                EXPECT_EQ(lint(args[1] == "--raw" ? std::vector<std::string>{path} : std::vector<std::string>{"--format", path}).out, printed.out);
            }
        }
    }
}

// The tool is the library's user: it includes no libxml2 or pugixml header of its own.
TEST_F(ToolTest, UsesTheLibraryAlone) {
    for (const auto& entry : std::filesystem::directory_iterator(std::string(TARNXML_SOURCE_DIR) + "/tools/tarnxml")) {
        const std::string text = tarntest::readFile(entry.path().string());
        for (const char* header : {"<libxml/", "\"libxml/", "pugixml.hpp"})
            EXPECT_EQ(std::string::npos, text.find(header)) << entry.path() << " includes " << header;
    }
}

// select against xmlstarlet on the corpus (those without a DTD, whose default attributes
// xmlstarlet adds): the same values and counts, and the same fragments where no CDATA section is
// involved (xmlstarlet turns CDATA into text; the tool keeps it).
TEST_F(ToolTest, AgreesWithXmlstarlet) {
    if (std::system("command -v xmlstarlet >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "xmlstarlet is missing";
    const auto starlet = [&](const std::vector<std::string>& args) { return run(args, "", "xmlstarlet").out; };
    for (const std::string& path : corpus()) {
        std::string text = tarntest::readFile(path);
        text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());   // UTF-16 read as ASCII
        if (text.find("DOCTYPE") != std::string::npos)
            continue;
        SCOPED_TRACE(path);
        EXPECT_EQ(starlet({"sel", "-T", "-t", "-m", "/*/*", "-v", ".", "-n", path}), run({"select", "--value", "-x", "/*/*", path}).out);
        EXPECT_EQ(starlet({"sel", "-T", "-t", "-v", "count(//*)", "-n", path}), run({"select", "--count", "-x", "//*", path}).out);
        if (text.find("CDATA") == std::string::npos) {
            EXPECT_EQ(starlet({"sel", "-t", "-m", "/*/*", "-c", ".", "-n", path}), run({"select", "-x", "/*/*", path}).out);
        }
    }
}

// The same elements and the same well-formedness verdicts as xmllint, on a large real document
// and on a few good and bad ones.
TEST_F(ToolTest, AgreesWithXmllint) {
    const std::string mime = "/usr/share/mime/packages/freedesktop.org.xml";
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0 || !std::filesystem::exists(mime))
        GTEST_SKIP() << "xmllint or " << mime << " is missing";
    const auto lint = [&](const std::vector<std::string>& args) { return run(args, "", "xmllint"); };
    for (const std::string& path : {mime, dir.write("ok.xml", kDoc), dir.write("twice.xml", "<a/><b/>"),
                                    dir.write("amp.xml", "<a>&</a>"), dir.write("cdata.xml", "<a><![CDATA[<]]></a>")}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(lint({"--noout", path}).code == 0 ? 0 : 1, run({"check", path}).code);
    }
    const std::string mimeTypes = "//*[local-name()='mime-type']";
    for (const std::string& xpath : {mimeTypes, std::string("//*[@type='text/plain']")}) {
        SCOPED_TRACE(xpath);
        const Result counted = lint({"--xpath", "count(" + xpath + ")", mime});
        EXPECT_EQ(counted.out.substr(0, counted.out.find_last_not_of('\n') + 1) + "\n",
                  run({"select", "--count", "-x", xpath, mime}).out);
    }
    // Both print each element with libxml2's node writer, one after another; the tool's
    // fragments also carry the namespace declarations in scope (here the default namespace).
    const std::string firstThree = "(" + mimeTypes + ")[position() <= 3]";
    std::string fragments = run({"select", "-x", firstThree, mime}).out;
    const std::string xmlns = " xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\"";
    for (std::size_t at = fragments.find(xmlns); at != std::string::npos; at = fragments.find(xmlns, at))
        fragments.erase(at, xmlns.size());
    EXPECT_EQ(lint({"--xpath", firstThree, mime}).out, fragments);
}

} // namespace
