// Whole-document output (XmlDocument::ToString) against xmllint, byte for byte, on the corpus;
// node fragments (XmlNode::FragmentXml) against xmlstarlet; in-scope namespace declarations.
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <libxml/globals.h>

#include <strings.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kCorpus = std::string(TARNXML_SOURCE_DIR) + "/tests/data/corpus";

// Standard output of a shell command, byte for byte ("" also when it cannot run).
std::string run(const std::string& command)
{
    std::string out;
    tarntest::runShell(command, out);
    return out;
}

// The encoding the file's declaration names, "" when none.
std::string declaredEncoding(const std::string& text)
{
    const std::string declaration = text.compare(0, 5, "<?xml") == 0 ? text.substr(0, text.find("?>")) : "";
    const std::string::size_type at = declaration.find("encoding=");
    if (at == std::string::npos || at + 10 > declaration.size())
        return std::string();
    return declaration.substr(at + 10, declaration.find(declaration[at + 9], at + 10) - at - 10);
}

bool isUtf8Name(const std::string& name) { return name.empty() || ::strcasecmp(name.c_str(), "UTF-8") == 0; }

TEST(DocumentToString, CorpusIsByteIdenticalToXmllint)
{
    if (run("command -v xmllint").empty())
        GTEST_SKIP() << "xmllint not installed";
    const std::vector<std::string> files = tarntest::filesIn(kCorpus);
    ASSERT_GE(files.size(), 10u);
    for (const std::string& file : files) {
        const std::string original = tarntest::readFile(file);
        const std::string declared = declaredEncoding(original);
        // Load reads UTF-8: other encodings are converted first (as a caller would).
        const std::string text = isUtf8Name(declared) ? original : run("xmllint --encode UTF-8 '" + file + "'");
        tarn::XmlDocument document;
        ASSERT_EQ(0, document.Load(text, false)) << file;
        // Read from the file in its own encoding, as xmllint reads it: as is, and with the blank
        // removal of xmllint --format, which is then printed indented without a re-read.
        tarn::XmlLoadOptions fromFile;
        fromFile.sanitize = false;
        tarn::XmlDocument asRead, withoutBlanks;
        ASSERT_EQ(0, asRead.LoadFile(file, fromFile)) << file;
        fromFile.noBlanks = true;
        ASSERT_EQ(0, withoutBlanks.LoadFile(file, fromFile)) << file;
        struct Case { bool format; std::string encoding; };
        const std::string keep = isUtf8Name(declared) ? "" : declared;
        for (const Case& c : {Case{false, keep}, Case{true, keep}, Case{false, "ISO-8859-1"}, Case{true, "UTF-16"}}) {
            SCOPED_TRACE(file + (c.format ? " --format" : "") + " encoding '" + c.encoding + "'");
            std::string command = "xmllint";
            if (c.format)
                command += " --format";
            if (!c.encoding.empty() && c.encoding != declared)
                command += " --encode " + c.encoding;
            const std::string expected = run(command + " '" + file + "'");
            ASSERT_FALSE(expected.empty());
            const tarn::XmlSaveOptions options{c.format, c.encoding};
            EXPECT_EQ(expected, document.ToString(options));
            tarn::XmlDocument& direct = c.format ? withoutBlanks : asRead;
            EXPECT_EQ(expected, direct.ToString(options));
            std::ostringstream streamed;
            EXPECT_TRUE(direct.SaveTo(streamed, options));
            EXPECT_EQ(expected, streamed.str());
        }
    }
}

TEST(DocumentToString, IgnoresHostOutputSettingsAndKeepsTheTree)
{
    tarn::XmlDocument document;
    ASSERT_EQ(0, document.Load("<a>\n    <b x=\"1\"/>\n    <c>t</c>\n</a>", false));
    const std::string formatted = document.ToString({true, ""});
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<a>\n  <b x=\"1\"/>\n  <c>t</c>\n</a>\n", formatted);
    const std::string plain = document.ToString({});
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<a>\n    <b x=\"1\"/>\n    <c>t</c>\n</a>\n", plain);

    const int indent = xmlIndentTreeOutput, noEmpty = xmlSaveNoEmptyTags;
    const char* indentString = xmlTreeIndentString;
    xmlIndentTreeOutput = 0;
    xmlTreeIndentString = "\t";
    xmlSaveNoEmptyTags = 1;
    EXPECT_EQ(formatted, document.ToString({true, ""}));
    EXPECT_EQ(plain, document.ToString({}));
    // The host's settings are given back.
    EXPECT_EQ(0, xmlIndentTreeOutput);
    EXPECT_STREQ("\t", xmlTreeIndentString);
    EXPECT_EQ(1, xmlSaveNoEmptyTags);
    xmlIndentTreeOutput = indent;
    xmlTreeIndentString = indentString;
    xmlSaveNoEmptyTags = noEmpty;

    // The indentation is the caller's choice: blanks only, "" for line breaks alone.
    tarn::XmlSaveOptions own{true, "", "\t"};
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<a>\n\t<b x=\"1\"/>\n\t<c>t</c>\n</a>\n", document.ToString(own));
    own.indent = "";
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<a>\n<b x=\"1\"/>\n<c>t</c>\n</a>\n", document.ToString(own));
    for (const char* refused : {"x", " -", "\n"}) {
        own.indent = refused;
        EXPECT_EQ("", document.ToString(own)) << refused;
    }
}

// An empty document or an unknown encoding gives nothing; SaveTo refuses the same, writing
// nothing, and reports a failing stream.
TEST(DocumentToString, EmptyDocumentAndUnknownEncodingGiveNothing)
{
    tarn::XmlDocument document;
    std::ostringstream nothing;
    EXPECT_EQ("", document.ToString({}));
    EXPECT_FALSE(document.SaveTo(nothing, {}));
    ASSERT_EQ(0, document.Load("<a>\xC3\xA9</a>", false));
    EXPECT_EQ("", document.ToString({false, "no-such-encoding"}));
    EXPECT_FALSE(document.SaveTo(nothing, {false, "no-such-encoding"}));
    EXPECT_EQ("", nothing.str());
    nothing.setstate(std::ios::badbit);
    EXPECT_FALSE(document.SaveTo(nothing, {}));
    // Without a declared encoding xmllint writes non-ASCII as character references.
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<a>&#xE9;</a>\n", document.ToString({}));
}

// xmllint --format keeps a blank that came from a character reference (it is content); printing
// the tree and re-reading it would see a plain blank and drop it. A document loaded without
// blanks is printed as xmllint prints it.
TEST(DocumentToString, BlanksLoadedAwayPrintWithoutARereadAndKeepContent)
{
    tarn::XmlLoadOptions options;
    options.noBlanks = true;
    tarn::XmlDocument document;
    ASSERT_EQ(0, document.Load("<a>&#32;<b/>\n  <c>\n</c>  </a>", options));
    const std::string expected = "<?xml version=\"1.0\"?>\n<a> <b/>\n  <c>\n</c>  </a>\n";  // as xmllint --format
    EXPECT_EQ(expected, document.ToString({true, ""}));
    std::ostringstream streamed;
    ASSERT_TRUE(document.SaveTo(streamed, {true, ""}));
    EXPECT_EQ(expected, streamed.str());
}

tarn::XmlNodePtr firstMatch(tarn::XmlDocument& document, const std::string& xpath, const tarn::XmlNamespaceBindings& ns)
{
    tarn::XPathNodeIterator* it = document.GetIterator(xpath, ns);
    return it != nullptr ? it->GetFirst() : tarn::XmlNodePtr();
}

// The declarations in scope, nearest first; FragmentXml carries those it borrows from the
// ancestors and leaves the tree as it was.
TEST(NodeNamespaces, InScopeDeclarationsNearestFirstAndFragmentsBorrowThem)
{
    tarn::XmlDocument document;
    ASSERT_EQ(0, document.Load(tarntest::readFile(kCorpus + "/10-prefixes.xml"), false));
    const std::string before = document.ToString({});
    const tarn::XmlNamespaceBindings ns = {{"i", "urn:example:inner"}, {"d", "urn:example:default"}};
    EXPECT_EQ((tarn::XmlNamespaceBindings{{"r", "urn:example:root"}, {"", "urn:example:default"}, {"x", "urn:example:x"}}),
              document.GetRoot()->GetNamespacesInScope());
    const tarn::XmlNodePtr inner = firstMatch(document, "//i:inner", ns);
    EXPECT_EQ((tarn::XmlNamespaceBindings{{"", "urn:example:inner"}, {"x", "urn:example:x2"}, {"r", "urn:example:root"}}),
              inner->GetNamespacesInScope());
    // xmlns="" hides the outer default namespace and is not listed itself.
    const tarn::XmlNamespaceBindings atLeaf = {{"x", "urn:example:x2"}, {"r", "urn:example:root"}};
    EXPECT_EQ(atLeaf, firstMatch(document, "//leaf", ns)->GetNamespacesInScope());
    // A text node sees the declarations of its element.
    const tarn::XmlNodePtr text = firstMatch(document, "//leaf", ns)->GetLastChild();
    ASSERT_TRUE(text);
    EXPECT_EQ(atLeaf, text->GetNamespacesInScope());
    EXPECT_TRUE(tarn::XmlNode().GetNamespacesInScope().empty());

    EXPECT_NE(std::string::npos, inner->FragmentXml().find("xmlns:r=\"urn:example:root\""));
    EXPECT_EQ(inner->OuterXml().find("xmlns:r="), std::string::npos);
    // A node with nothing to borrow keeps its own declarations.
    EXPECT_EQ(document.GetRoot()->OuterXml(), document.GetRoot()->FragmentXml());
    EXPECT_EQ(before, document.ToString({}));
    EXPECT_EQ("", tarn::XmlNode().FragmentXml());
}

TEST(NodeFragment, MatchesXmlstarletCopyOf)
{
    if (run("command -v xmlstarlet").empty())
        GTEST_SKIP() << "xmlstarlet not installed";
    struct Case { const char* file; const char* prefix; const char* uri; const char* xpath; };
    const Case cases[] = {
        {"10-prefixes.xml", "x", "urn:example:x", "//x:item"},
        {"10-prefixes.xml", "i", "urn:example:inner", "//i:inner"},
        {"10-prefixes.xml", "d", "urn:example:default", "//d:item"},
        {"10-prefixes.xml", "x", "urn:example:x2", "//x:item"},
        {"10-prefixes.xml", "r", "urn:example:root", "/r:root"},
        {"10-prefixes.xml", "r", "urn:example:root", "//leaf"},
        {"01-svg-namespaced.xml", "s", "http://www.w3.org/2000/svg", "//s:use"},
        {"02-atom-feed.xml", "h", "http://www.w3.org/1999/xhtml", "//h:p"},
        {"06-mixed-content.xml", "n", "unused", "//strong"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " " + c.xpath);
        const std::string path = kCorpus + "/" + c.file;
        tarn::XmlDocument document;
        ASSERT_EQ(0, document.Load(tarntest::readFile(path), false));
        std::string fragments;
        tarn::XPathNodeIterator* it = document.GetIterator(c.xpath, {{c.prefix, c.uri}});
        ASSERT_NE(nullptr, it);
        for (tarn::XmlNodePtr n = it->GetFirst(); n; n = it->GetNext())
            fragments += n->FragmentXml();
        const std::string expected = run(std::string("xmlstarlet sel -N ") + c.prefix + "=" + c.uri + " -t -c '" +
                                         c.xpath + "' '" + path + "'");
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(expected, fragments);
    }
}

} // namespace
