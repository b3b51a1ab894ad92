// The tarnxml program, driven as a user drives it: files in a temporary directory, standard
// input, exit codes, standard output and standard error.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

struct Result {
    int code;
    std::string out;
    std::string err;
};

std::string quote(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

struct Case {
    std::vector<std::string> args;  // "$F" stands for the document file
    std::string input;              // standard input
    int code;
    std::string out;                // expected standard output (exactly)
    std::string err;                // expected part of standard error ("" : no check)
};

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::string(TARNXML_TOOL_PATH).empty()) {
            GTEST_SKIP() << "the tarnxml tool is not built";
        }
    }

    // Runs the tool with `args` and `input` on standard input. A crash shows as code -1.
    Result run(const std::vector<std::string>& args, const std::string& input = std::string(),
               const std::string& program = TARNXML_TOOL_PATH) {
        std::string in = dir.write(".stdin", input);
        std::string command = quote(program);
        for (const std::string& arg : args) {
            command += ' ' + quote(arg);
        }
        command += " <" + quote(in) + " >" + quote(dir.path() + "/.stdout") + " 2>" + quote(dir.path() + "/.stderr");
        int status = std::system(command.c_str());
        Result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, tarntest::readFile(dir.path() + "/.stdout"),
                      tarntest::readFile(dir.path() + "/.stderr")};
        std::filesystem::remove(dir.path() + "/.stdin");
        std::filesystem::remove(dir.path() + "/.stdout");
        std::filesystem::remove(dir.path() + "/.stderr");
        return result;
    }

    // Runs each case with "$F" replaced by `path` and compares exit code, output and error.
    void expectCases(const std::vector<Case>& cases, const std::string& path) {
        for (const Case& c : cases) {
            std::vector<std::string> args = c.args;
            std::string shown;
            for (std::string& arg : args) {
                shown += arg + ' ';
                if (arg == "$F") {
                    arg = path;
                }
            }
            SCOPED_TRACE(shown);
            Result result = run(args, c.input);
            EXPECT_EQ(c.code, result.code) << result.err;
            EXPECT_EQ(c.out, result.out);
            EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
        }
    }

    std::string file(const std::string& name, const std::string& content) { return dir.write(name, content); }

    tarntest::TempDir dir;
};

const char* const kDoc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                         "<shop name=\"Laden\">\n"
                         "  <item id=\"1\" kind=\"fruit\">Äpfel &amp; Birnen</item>\n"
                         "  <item id=\"2\">Brot<note>frisch</note></item>\n"
                         "  <box><item id=\"3\"/></box>\n"
                         "</shop>\n";

TEST_F(ToolTest, CommandLineHelpVersionAndUsageErrors) {
    Result help = run({"--help"});
    EXPECT_EQ(0, help.code);
    for (const char* word : {"check", "select", "edit", "format", "stream", "encode", "decode", "write", "demo",
                             "Exit status"}) {
        EXPECT_NE(std::string::npos, help.out.find(word)) << word;
    }
    for (const char* command : {"check", "select", "edit", "format", "stream", "encode", "decode", "write", "demo"}) {
        SCOPED_TRACE(command);
        Result sub = run({command, "--help"});
        EXPECT_EQ(0, sub.code);
        EXPECT_NE(std::string::npos, sub.out.find(std::string("tarnxml ") + command));
    }
    Result version = run({"--version"});
    EXPECT_EQ(0, version.code);
    EXPECT_EQ(0u, version.out.find("tarnxml "));

    std::vector<Case> usage = {
        {{}, "", 2, "", "subcommand"},
        {{"frobnicate"}, "", 2, "", "unknown subcommand 'frobnicate'"},
        {{"check", "--bogus", "$F"}, "", 2, "", "--bogus"},
        {{"check"}, "", 2, "", "FILE"},
        {{"select", "$F"}, "", 2, "", "--xpath"},
        {{"select", "--text", "--count", "-x", "//a", "$F"}, "", 2, "", "excludes"},
    };
    expectCases(usage, file("doc.xml", kDoc));
}

TEST_F(ToolTest, CheckVerdictsAndInputErrors) {
    std::string good = file("good.xml", kDoc);
    std::string bad = file("bad.xml", "<a>\n  <b>\n</a>\n");
    std::string empty = file("empty.xml", "");
    std::string repaired = file("repaired.xml", "<a>caf\xC3 \x01</a>");
    std::string missing = dir.path() + "/missing.xml";
    std::vector<Case> cases = {
        {{"check", "$F"}, "", 0, good + ": ok, 6 elements\n", ""},
        {{"check", "-"}, "<r/>", 0, "-: ok, 1 element\n", ""},
        {{"check", bad}, "", 1, "", bad + ":3:5: Opening and ending tag mismatch: b line 2 and a\n"},
        {{"check", "$F", bad}, "", 1, good + ": ok, 6 elements\n", bad + ":3:5:"},
        {{"check", "--recover", bad}, "", 0,
         bad + ": ok, 2 elements, recovered from errors (first at 3:5: Opening and ending tag mismatch: b line 2 and "
               "a)\n",
         ""},
        {{"check", repaired}, "", 0, repaired + ": ok, 1 element, invalid UTF-8 or control characters repaired\n", ""},
        {{"check", empty}, "", 1, "", empty + ":1:1: Document is empty"},
        {{"check", "-"}, "just text", 1, "", "-:1:1: Start tag expected"},
        {{"check", missing}, "", 2, "", missing + ": No such file or directory"},
        {{"check", dir.path()}, "", 2, "", dir.path() + ": is a directory"},
        {{"check", missing, bad}, "", 2, "", bad + ":3:5:"},
    };
    expectCases(cases, good);
}

TEST_F(ToolTest, SelectOutputsAndExitCodes) {
    std::vector<Case> cases = {
        {{"select", "-x", "//item", "$F"}, "", 0,
         "<item id=\"1\" kind=\"fruit\">Äpfel &amp; Birnen</item>\n<item id=\"2\">Brot<note>frisch</note></item>\n"
         "<item id=\"3\"/>\n",
         ""},
        {{"select", "--text", "-x", "/shop/item", "$F"}, "", 0, "Äpfel & Birnen\nBrot\n", ""},
        {{"select", "--attr", "kind", "-x", "//item", "$F"}, "", 0, "fruit\n", ""},
        {{"select", "--count", "-x", "//item", "$F"}, "", 0, "3\n", ""},
        {{"select", "--count", "-x", "//nothing", "$F"}, "", 1, "0\n", ""},
        {{"select", "-x", "//nothing", "$F"}, "", 1, "", ""},
        {{"select", "--attr", "missing", "-x", "//item", "$F"}, "", 1, "", ""},
        {{"select", "-x", "count(//item) * 2", "$F"}, "", 0, "6\n", ""},
        {{"select", "-x", "//item/@id", "$F"}, "", 1, "", "no element"},
        {{"select", "-x", "//box/item"}, kDoc, 0, "<item id=\"3\"/>\n", ""},
        {{"select", "-x", "//item[@id=", "$F"}, "", 2, "", "invalid XPath expression '//item[@id='"},
        {{"select", "-x", "nosuch(//item)", "$F"}, "", 2, "", "'nosuch(//item)': Unregistered function"},
        {{"select", "-x", "//p:item", "$F"}, "", 2, "", "'//p:item': Undefined namespace prefix"},
        {{"select", "-x", "//a"}, "<a><b></a>", 1, "", "-:1:"},
        {{"select", "-x", "//a", dir.path() + "/none.xml"}, "", 2, "", "No such file or directory"},
    };
    expectCases(cases, file("doc.xml", kDoc));
}

TEST_F(ToolTest, EditActionsApplyInOrder) {
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    const std::string doc = head + "<r><a k=\"1\">x</a><b><c/></b><a/></r>\n";
    std::vector<Case> cases = {
        {{"edit", "-x", "//a", "--set-text", "T", "--set-attr", "k=v=w", "$F"}, "", 0,
         head + "<r><a k=\"v=w\">T</a><b><c/></b><a k=\"v=w\">T</a></r>\n", ""},
        {{"edit", "-x", "/r/a[1]", "--del-attr", "k", "--append", "n=1 & 2", "-x", "//c", "--set-attr", "z=<", "$F"},
         "", 0, head + "<r><a>x<n>1 &amp; 2</n></a><b><c z=\"&lt;\"/></b><a/></r>\n", ""},
        // c lies inside b: both are selected, b takes c with it, and later actions find nothing.
        {{"edit", "-x", "//b|//c", "--delete", "--set-text", "gone", "$F"}, "", 0, head + "<r><a k=\"1\">x</a><a/></r>\n",
         ""},
        {{"edit", "-x", "/r", "--delete", "$F"}, "", 0, doc, "root element cannot be deleted"},
        {{"edit", "-x", "//zzz", "--delete", "$F"}, "", 1, doc, "'//zzz' selects no element"},
        {{"edit", "--set-text", "x", "$F"}, "", 2, "", "--set-text needs a preceding -x"},
        {{"edit", "-x", "//a", "--append", "novalue", "$F"}, "", 2, "", "NAME=VALUE"},
        {{"edit", "-x", "//a[", "--delete", "$F"}, "", 2, "", "'//a['"},
        {{"edit", "-x", "//a", "--delete", "--in-place"}, doc, 2, "", "standard input"},
        {{"edit", "-x", "//a", "--delete"}, "<r><a></r>", 1, "", "-:1:"},
    };
    expectCases(cases, file("doc.xml", doc));
}

TEST_F(ToolTest, EditInPlaceReplacesTheFileOrLeavesItUntouched) {
    const std::string doc = "<r><a>x</a></r>";
    std::string path = file("doc.xml", doc);
    ::chmod(path.c_str(), 0640);
    Result done = run({"edit", "--in-place", "-x", "//a", "--set-text", "y", path});
    EXPECT_EQ(0, done.code) << done.err;
    EXPECT_EQ("", done.out);
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<r><a>y</a></r>\n", tarntest::readFile(path));
    struct stat info {};
    ASSERT_EQ(0, ::stat(path.c_str(), &info));
    EXPECT_EQ(0640u, info.st_mode & 07777u);
    std::size_t entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        std::string name = entry.path().filename().string();
        entries += name[0] == '.' ? 0 : 1;
        EXPECT_EQ(std::string::npos, name.find(".tarnxml-")) << "temporary file left behind: " << name;
    }
    EXPECT_EQ(1u, entries);
    std::filesystem::remove(path);

    // A name so long that no temporary name fits beside it: the write fails even for root.
    std::string longName = dir.write(std::string(250, 'n') + ".xml", doc);
    Result tooLong = run({"edit", "--in-place", "-x", "//a", "--delete", longName});
    EXPECT_EQ(2, tooLong.code);
    EXPECT_NE(std::string::npos, tooLong.err.find("left unchanged")) << tooLong.err;
    EXPECT_EQ(doc, tarntest::readFile(longName));

    if (::geteuid() == 0) {
        GTEST_SKIP() << "root can write into a read-only directory";
    }
    std::string locked = dir.path() + "/locked";
    std::filesystem::create_directory(locked);
    std::string inside = locked + "/doc.xml";
    dir.write("locked/doc.xml", doc);
    ::chmod(locked.c_str(), 0555);
    Result refused = run({"edit", "--in-place", "-x", "//a", "--delete", inside});
    ::chmod(locked.c_str(), 0755);
    EXPECT_EQ(2, refused.code);
    EXPECT_NE(std::string::npos, refused.err.find("left unchanged")) << refused.err;
    EXPECT_EQ(doc, tarntest::readFile(inside));
}

TEST_F(ToolTest, FormatStreamEncodeDecodeAndWrite) {
    const std::string small = "<r a=\"1\"><b>t\tx</b><c/><!--n--></r>";
    const std::string escapes = "<r q='\"'>line1\nline2\\<![CDATA[<x>]]></r>";
    std::vector<Case> cases = {
        {{"format", "$F"}, "", 0, "<r a=\"1\">\n  <b>t\tx</b>\n  <c />\n  <!--n-->\n</r>\n", ""},
        {{"format", "--indent", "\t", "$F"}, "", 0, "<r a=\"1\">\n\t<b>t\tx</b>\n\t<c />\n\t<!--n-->\n</r>\n", ""},
        {{"format", "--raw", "$F"}, "", 0, "<r a=\"1\"><b>t\tx</b><c/><!--n--></r>\n", ""},
        {{"format"}, "<r><unclosed></r>", 1, "", "-:1:"},
        {{"stream", "$F"}, "", 0,
         "0 element r\n1 attribute a \"1\"\n1 element b\n2 text #text \"t\\tx\"\n1 end-element b\n"
         "1 element c empty\n1 comment #comment \"n\"\n0 end-element r\n",
         ""},
        {{"stream", "-"}, escapes, 0,
         "0 element r\n1 attribute q \"\\\"\"\n1 text #text \"line1\\nline2\\\\\"\n1 cdata #cdata-section \"<x>\"\n"
         "0 end-element r\n",
         ""},
        {{"stream", "--skip-blanks", "-"}, "<r>\n  <a/>\n</r>", 0, "0 element r\n1 element a empty\n0 end-element r\n",
         ""},
        {{"stream", "-"}, "<r><a></r>", 1, "", "-:1:"},
        {{"stream", "-"}, "", 1, "", "Document is empty"},
        {{"stream", "/"}, "", 2, "", "is a directory"},
        {{"encode"}, "a<b & 'c' \"d\"\n\xC3\xA9", 0, "a&lt;b &amp; &apos;c&apos; &quot;d&quot;&#xA;&#xE9;", ""},
        {{"encode"}, "ok\xC3(", 1, "", "not valid UTF-8 (first invalid byte at offset 2)"},
        {{"encode"}, "", 0, "", ""},
        {{"decode"}, "&lt;&#233;&#x41;&amp;amp;&bogus;", 0, "<\xC3\xA9" "A&amp;&bogus;", ""},
        {{"write"}, "declaration\n# a comment\nstart list\nattr n 2\nelement item a & b\nstart empty\nend\n", 0,
         "<?xml version=\"1.0\" encoding=\"UTF-8\"?><list n=\"2\"><item>a &amp; b</item><empty/></list>\n", ""},
        {{"write", "--indent", "  "}, "start r\ntext one\\ntwo\ncdata <raw>\ncomment c\n", 0,
         "<r>one\ntwo<![CDATA[<raw>]]><!--c-->\n</r>\n", ""},
        {{"write", "--indent", "  "}, "start r\nstart s\nelement t v\n", 0, "<r>\n  <s>\n    <t>v</t>\n  </s>\n</r>\n",
         ""},
        {{"write"}, "start r\nend\nend\n", 1, "", "-:3: 'end' without an open element"},
        {{"write"}, "attr x 1\n", 1, "", "-:1: 'attr' outside an element"},
        {{"write"}, "start r\nend\nstart s\n", 1, "", "-:3: a second root element"},
        {{"write"}, "begin r\n", 1, "", "-:1: unknown keyword 'begin'"},
    };
    expectCases(cases, file("small.xml", small));
}

TEST_F(ToolTest, EncodeThenDecodeGivesTheTextBack) {
    const std::vector<std::string> texts = {
        "plain", "<&>'\"", "tab\tcr\rlf\n", "\xC3\xA9t\xC3\xA9", "\xE2\x82\xAC 5", "\xF0\x9F\x98\x80 four bytes",
        "&amp; already encoded", "",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        Result encoded = run({"encode"}, text);
        ASSERT_EQ(0, encoded.code) << encoded.err;
        for (char c : encoded.out) {
            EXPECT_TRUE(c >= 0x20 && c < 0x7f) << "not printable ASCII: " << static_cast<int>(c);
        }
        Result decoded = run({"decode"}, encoded.out);
        EXPECT_EQ(text, decoded.out);
    }
}

// What edit prints is a document again, with the prolog kept.
TEST_F(ToolTest, EditOutputIsWellFormedAndKeepsTheProlog) {
    std::string path = file("p.xml", "<?xml version=\"1.0\"?>\n<!DOCTYPE r>\n<!-- kept -->\n<r><a>1</a><a>2</a></r>\n");
    Result edited = run({"edit", "-x", "//a[1]", "--delete", "-x", "/r", "--append", "b=<&>", path});
    ASSERT_EQ(0, edited.code) << edited.err;
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<!DOCTYPE r>\n<!-- kept -->\n<r><a>2</a><b>&lt;&amp;&gt;</b></r>\n", edited.out);
    Result checked = run({"check", "-"}, edited.out);
    EXPECT_EQ("-: ok, 3 elements\n", checked.out);
}

// A document far larger than the others goes through stream and check whole.
TEST_F(ToolTest, LargeInputIsStreamedCompletely) {
    const int items = 50000;
    std::string big = "<log>";
    for (int i = 0; i < items; ++i) {
        big += "<e n=\"" + std::to_string(i) + "\">value " + std::to_string(i) + "</e>";
    }
    big += "</log>";
    std::string path = file("big.xml", big);
    Result streamed = run({"stream", path});
    ASSERT_EQ(0, streamed.code) << streamed.err;
    std::size_t lines = 0;
    for (char c : streamed.out) {
        lines += c == '\n' ? 1 : 0;
    }
    EXPECT_EQ(2u + 4u * items, lines);  // per item: element, attribute, text, end-element
    EXPECT_NE(std::string::npos, streamed.out.find("2 attribute n \"49999\"\n"));
    Result checked = run({"check", path});
    EXPECT_EQ(path + ": ok, 50001 elements\n", checked.out);
}

TEST_F(ToolTest, DemoRunsEveryStep) {
    Result demo = run({"demo", "--sample", std::string(TARNXML_SOURCE_DIR) + "/examples/sample.xml"});
    EXPECT_EQ(0, demo.code) << demo.err;
    for (const char* command : {"$ tarnxml check", "$ tarnxml select", "$ tarnxml edit", "$ tarnxml format",
                                "$ tarnxml stream", "| tarnxml write", "| tarnxml encode", "| tarnxml decode"}) {
        EXPECT_NE(std::string::npos, demo.out.find(command)) << command;
    }
    Result missing = run({"demo", "--sample", dir.path() + "/absent.xml"});
    EXPECT_EQ(2, missing.code);
    EXPECT_NE(std::string::npos, missing.err.find("absent.xml: No such file or directory"));
}

// The same answers as xmllint on a large real document and on a few good and bad ones.
TEST_F(ToolTest, AgreesWithXmllint) {
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "xmllint is not installed";
    }
    std::vector<std::string> files = {
        file("ok.xml", kDoc), file("mismatch.xml", "<a><b></a>"), file("twice.xml", "<a/><b/>"),
        file("attr.xml", "<a x='1' x='2'/>"), file("amp.xml", "<a>&</a>"), file("cdata.xml", "<a><![CDATA[<]]></a>"),
    };
    const std::string mime = "/usr/share/mime/packages/freedesktop.org.xml";
    bool haveMime = std::filesystem::exists(mime);
    if (haveMime) {
        files.push_back(mime);
    }
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        Result lint = run({"--noout", path}, "", "xmllint");
        Result ours = run({"check", path});
        EXPECT_EQ(lint.code == 0 ? 0 : 1, ours.code) << ours.err;
    }
    if (!haveMime) {
        GTEST_SKIP() << mime << " is not present";
    }
    for (const std::string xpath : {"//*[local-name()='mime-type']", "//*", "//*[@type='text/plain']"}) {
        SCOPED_TRACE(xpath);
        Result lint = run({"--xpath", "count(" + xpath + ")", mime}, "", "xmllint");
        Result ours = run({"select", "--count", "-x", xpath, mime});
        ASSERT_EQ(0, lint.code);
        EXPECT_EQ(lint.out.substr(0, lint.out.find_last_not_of('\n') + 1) + "\n", ours.out);
    }
    // Both print each element with libxml2's node writer, one after another.
    const std::string firstThree = "(//*[local-name()='mime-type'])[position() <= 3]";
    Result lintNodes = run({"--xpath", firstThree, mime}, "", "xmllint");
    Result ourNodes = run({"select", "-x", firstThree, mime});
    EXPECT_EQ(lintNodes.out, ourNodes.out);
    Result lint = run({"--xpath", "string((//*[local-name()='mime-type'])[17]/@type)", mime}, "", "xmllint");
    Result ours = run({"select", "--attr", "type", "-x", "(//*[local-name()='mime-type'])[17]", mime});
    EXPECT_EQ(lint.out.substr(0, lint.out.find_last_not_of('\n') + 1) + "\n", ours.out);
}

} // namespace
