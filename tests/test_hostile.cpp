// Hostile input through every door: the document (recover off and on), the pull reader and the
// tool's check and stream. Each must finish (ctest's timeout bounds the time), stay within a
// bounded memory footprint, substitute no entity and read no file or network resource.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"
#include "tarnxml/XmlReader.h"

namespace {

const std::string kToolPath = TARNXML_TOOL_PATH;

// Bound of the peak resident size that any one input may add to this process, or reach in a run
// of the tool. Expanding any of the entity bombs would need gigabytes; the largest honest input
// is the 64 MB text node.
constexpr long kMaxPeakKb = 1024L * 1024L;

long peakKb(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return usage.ru_maxrss;
}

// Text that must never appear in any output: a line of /etc/passwd, or an expanded entity.
void expectNothingForbidden(const std::string& output, const std::string& where)
{
    for (const char* forbidden : {"root:x:0:0", "lollollollollollollollollollol", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"})
        EXPECT_EQ(output.find(forbidden), std::string::npos) << where << " shows substituted or external content";
}

struct HostileCase {
    std::string name;
    std::function<std::string()> make; // the document's bytes
};

// gtest would otherwise print the parameter's raw bytes, padding included.
void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

// Every file of tests/data/hostile and the generated inputs too large to check in.
std::vector<HostileCase> cases()
{
    std::vector<HostileCase> all = {
        {"deep_nesting", [] {
             std::string open, close;
             for (int i = 0; i < 100000; ++i)
                 open += "<a>", close += "</a>";
             return open + close;
         }},
        {"huge_text_node", [] { return "<r>" + std::string(tarntest::quick() ? 8u << 20 : 64u << 20, 't') + "</r>"; }},
        {"huge_attribute", [] { return "<r a=\"" + std::string(8u << 20, 'v') + "\"/>"; }},
        {"quadratic_blowup", [] {
             // One 50 000-byte entity referenced 50 000 times: 2.5 GB if it were expanded.
             std::string text = "<!DOCTYPE r [<!ENTITY a \"" + std::string(50000, 'a') + "\">]><r>";
             for (int i = 0; i < 50000; ++i)
                 text += "&a;";
             return text + "</r>";
         }},
        {"namespace_axes", [] {
             // 50 000 namespace nodes in scope for XPath's namespace axis (a tenth in quick runs).
             std::string text = "<r xmlns=\"urn:r\">";
             for (long i = 0, n = tarntest::iterations(5000); i < n; ++i) {
                 text += "<e";
                 for (int k = 0; k < 10; ++k)
                     text += " xmlns:p" + std::to_string(k) + "=\"urn:" + std::to_string(i) + "\"";
                 text += "/>";
             }
             return text + "</r>";
         }},
        {"many_attributes", [] {
             // libxml2 compares each attribute name with every earlier one: about 18 s per parse
             // here, the slowest input of the set (a tenth of it in quick runs).
             std::string text = "<r";
             for (long i = 0, n = tarntest::iterations(100000); i < n; ++i)
                 text += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
             return text + "/>";
         }}};
    for (const std::string& path : tarntest::filesIn(std::string(TARNXML_SOURCE_DIR) + "/tests/data/hostile"))
        all.push_back({std::filesystem::path(path).stem().string(), [path] { return tarntest::readFile(path); }});
    std::sort(all.begin(), all.end(), [](const HostileCase& a, const HostileCase& b) { return a.name < b.name; });
    return all;
}

class Hostile : public ::testing::TestWithParam<HostileCase> {};

TEST_P(Hostile, DocumentAndReaderFinishWithoutSubstitution)
{
    tarntest::QuietLibxml2 quiet;
    const std::string text = GetParam().make();
    const long before = peakKb(RUSAGE_SELF);
    for (const bool recover : {false, true}) {
        SCOPED_TRACE(recover ? "recover" : "strict");
        tarn::XmlDocument document;
        const int result = document.Load(text, recover);
        const tarn::XmlNodePtr root = document.GetRoot();
        EXPECT_TRUE(result == 0 || (result == -1 && !root)) << result;
        if (!root)
            continue;
        expectNothingForbidden(root->OuterXml(), "OuterXml");
        // Queries over every axis, namespace nodes included, then a clone serialised and
        // queried on its own.
        for (const char* xpath : {"//namespace::*", "//*[namespace::*]", "//@*/..", "//text()/.."}) {
            tarn::XPathNodeIterator* found = document.GetIterator(xpath);
            for (tarn::XmlNodePtr n = found->GetFirst(); n; n = found->GetNext())
                expectNothingForbidden(n->GetName(), xpath);
        }
        const tarn::XmlNodePtr clone = root->Clone();
        expectNothingForbidden(clone->SerializeOuterXml(), "SerializeOuterXml");
        EXPECT_FALSE(clone->GetIterator("//*")->GetFirst()); // a detached clone has no document
    }
    // Whatever stops the walk (the end or an error), no entity was expanded into the values.
    tarn::XmlReader reader(text);
    std::size_t seen = 0;
    while (reader.read()) {
        const std::string value = reader.value();
        expectNothingForbidden(value, "value()");
        seen += value.size();
    }
    EXPECT_LE(seen, text.size());
    EXPECT_LT(peakKb(RUSAGE_SELF) - before, kMaxPeakKb);
}

TEST_P(Hostile, ToolCheckAndStreamEndCleanly)
{
    if (kToolPath.empty())
        GTEST_SKIP() << "the tarnxml tool is not built";
    tarntest::TempDir dir;
    const std::string path = dir.write(GetParam().name + ".xml", GetParam().make());
    for (const char* subcommand : {"check", "stream"}) {
        SCOPED_TRACE(subcommand);
        std::string output;
        // Both streams, the first MB.
        const int code = tarntest::runShell("'" + kToolPath + "' " + subcommand + " '" + path + "' 2>&1", output, 1u << 20);
        EXPECT_TRUE(code == 0 || code == 1) << "exit " << code << ": " << output.substr(0, 400);
        expectNothingForbidden(output, subcommand);
    }
    // The largest run of the tool so far. A child is charged from its start with this process's
    // resident size (exec carries the high-water mark over), which under ThreadSanitizer alone
    // exceeds the bound; what the tool uses on top of that is what is bounded.
    EXPECT_LT(peakKb(RUSAGE_CHILDREN), peakKb(RUSAGE_SELF) + kMaxPeakKb);
}

INSTANTIATE_TEST_SUITE_P(Inputs, Hostile, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<HostileCase>& test) { return test.param.name; });

} // namespace
