// The streaming reader (openFile / openFd): the same node sequence as the in-memory reader,
// errors as diagnostics, the descriptor rules and forced encodings.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "tarnxml/XmlReader.h"

namespace {

using tarn::XmlReader;
using tarn::XmlReaderNodeType;

// Every node as one line: depth, type, names, value, flags and attributes.
std::string walk(XmlReader& r)
{
    std::string out;
    while (r.read()) {
        out += std::to_string(r.depth()) + " " + std::to_string(r.nodeType()) + " " + r.name() + " {" +
               r.namespaceURI() + "} [" + r.value() + "] " + (r.isEmpty() ? "e" : "") + r.xmlVersion() +
               r.encoding() + r.lang();
        for (bool more = r.firstAttribute(); more; more = r.nextAttribute())
            out += " @" + r.name() + "=" + r.value();
        r.moveToElement();
        out += "\n";
    }
    return out + "state " + std::to_string(r.state());
}

std::vector<std::string> corpus()
{
    std::vector<std::string> docs = {
        "<a/>",
        "<?xml version='1.0' encoding='UTF-8'?>\n<!-- c --><?pi data?><r a='1' b=\"&amp;\">t<![CDATA[<x>]]>\n</r>",
        "<p:r xmlns:p='urn:p' xmlns='urn:d'><p:c p:at='v'/><d xml:lang='de'>Größe – „x“</d></p:r>",
        "<!DOCTYPE r [<!ENTITY e 'ent &#65;'><!ATTLIST r d CDATA 'def'>]><r x='&e;'>&e;&#x263A;</r>",
        "\xEF\xBB\xBF<r>\n  <blank>   </blank>\n\t<e/>\n</r>\n",
        "<?xml version='1.0' encoding='ISO-8859-1'?><r v='\xE9'>caf\xE9</r>",
        "<r><a><b><c>deep</c></b></a><a/><a>x</a></r>",
        "<broken><x></broken>",
    };
    // Large enough to cross libxml2's input chunks many times.
    std::string big = "<big>";
    for (int i = 0; i < 20000; ++i)
        big += "<i n='" + std::to_string(i) + "'>text " + std::to_string(i * 7) + " &amp; more</i>\n";
    docs.push_back(big + "</big>");
    for (const auto& entry : std::filesystem::directory_iterator(std::string(TARNXML_SOURCE_DIR) + "/tests/data/hostile"))
        docs.push_back(tarntest::readFile(entry.path().string()));
    docs.push_back(tarntest::readFile(std::string(TARNXML_SOURCE_DIR) + "/examples/sample.xml"));
    return docs;
}

TEST(ReaderStream, SameNodesAsTheInMemoryReader)
{
    tarntest::TempDir dir;
    int index = 0;
    for (const std::string& doc : corpus()) {
        // The in-memory reader reads its text up to the first NUL byte (UTF-16 files, say).
        if (doc.find('\0') != std::string::npos)
            continue;
        SCOPED_TRACE(doc.substr(0, 60));
        const std::string path = dir.write("doc" + std::to_string(index++) + ".xml", doc);
        XmlReader memory(doc);
        const std::string expected = walk(memory);
        XmlReader file;
        ASSERT_TRUE(file.openFile(path, {}));
        EXPECT_EQ(walk(file), expected);
        EXPECT_EQ(file.diagnostics().size(), memory.diagnostics().size());
        const int fd = ::open(path.c_str(), O_RDONLY);
        XmlReader stream;
        ASSERT_TRUE(stream.openFd(fd, {}));
        EXPECT_EQ(walk(stream), expected);
        stream.close();
        // The caller's descriptor stays open.
        EXPECT_EQ(::close(fd), 0);
    }
}

TEST(ReaderStream, BadBytesEndTheReadWithADiagnostic)
{
    tarntest::TempDir dir;
    const struct { const char* name; std::string text; int line; } cases[] = {
        {"NUL byte", std::string("<r>\nab\0c</r>", 12), 2},
        {"invalid UTF-8", "<r>\n\n x\xC3\x28</r>", 3},
        {"control character", "<r>\x01</r>", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XmlReader r;
        tarn::XmlReaderOptions options;
        options.sourceName = "in.xml";
        ASSERT_TRUE(r.openFile(dir.write("bad.xml", c.text), options));
        while (r.read()) {
        }
        EXPECT_EQ(r.state(), 2);
        ASSERT_FALSE(r.diagnostics().empty());
        EXPECT_EQ(r.diagnostics()[0].line, c.line);
        EXPECT_GT(r.diagnostics()[0].column, 0);
        EXPECT_EQ(r.diagnostics()[0].source, "in.xml");
    }
}

TEST(ReaderStream, OpeningRulesAndForcedEncoding)
{
    tarntest::TempDir dir;
    XmlReader r("<held/>");
    EXPECT_FALSE(r.openFile(dir.path() + "/missing.xml", {}));
    EXPECT_EQ(r.state(), -1);
    ASSERT_EQ(r.diagnostics().size(), 1u);
    EXPECT_NE(r.diagnostics()[0].message.find("missing.xml"), std::string::npos);
    EXPECT_FALSE(r.openFile(dir.path(), {}));
    EXPECT_FALSE(r.openFd(-1, {}));
    // The held text went with the first open; reset() has nothing to reopen.
    r.reset();
    EXPECT_FALSE(r.read());

    const std::string latin1 = dir.write("l.xml", "<r>caf\xE9</r>");
    tarn::XmlReaderOptions options;
    options.encoding = "ISO-8859-1";
    ASSERT_TRUE(r.openFile(latin1, options));
    ASSERT_TRUE(r.read() && r.read());
    EXPECT_EQ(r.value(), "caf\xC3\xA9");
    options.encoding = "no-such-encoding";
    EXPECT_FALSE(r.openFile(latin1, options));

    // Without the huge option libxml2's depth limit holds, with it the document reads.
    std::string deep = "<d/>";
    for (int i = 0; i < 300; ++i)
        deep = "<d>" + deep + "</d>";
    const std::string path = dir.write("deep.xml", deep);
    for (bool huge : {false, true}) {
        options = tarn::XmlReaderOptions();
        options.huge = huge;
        ASSERT_TRUE(r.openFile(path, options));
        while (r.read()) {
        }
        EXPECT_EQ(r.state(), huge ? 3 : 2);
    }
    EXPECT_EQ(XmlReaderNodeType::EndElement, 15);
    EXPECT_EQ(XmlReaderNodeType::XmlDeclaration, 17);
}

} // namespace
