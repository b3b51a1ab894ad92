// Child content lookup and subtree cloning: the library next to the same work done with raw
// libxml2 on the same tree, in the same run. After the runs the program prints, for each pair,
// library time / raw time (lookup overhead) and raw time / library time (clone speed).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include <libxml/tree.h>

#include "tarn/shared.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace {

// <r><c0>0</c0><c1>1</c1>...</r>; the wanted child is the last one, so both sides walk them all.
std::string childrenText(int count)
{
    std::string text = "<r>";
    for (int i = 0; i < count; ++i)
        text += "<c" + std::to_string(i) + ">" + std::to_string(i) + "</c" + std::to_string(i) + ">";
    return text + "</r>";
}

void childDataLibrary(benchmark::State& state, int count)
{
    const tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(childrenText(count));
    const tarn::XmlNodePtr root = doc->GetRoot();
    const std::string name = "c" + std::to_string(count - 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(root->GetChildDataInt32(name));
    if (root->GetChildDataInt32(name) != count - 1)
        state.SkipWithError("wrong value");
}

int rawChildInt32(const xmlNode* parent, const char* name)
{
    for (const xmlNode* child = parent->children; child; child = child->next) {
        if (child->type != XML_ELEMENT_NODE || std::strcmp(reinterpret_cast<const char*>(child->name), name) != 0)
            continue;
        for (const xmlNode* text = child->children; text; text = text->next) {
            if (text->type == XML_TEXT_NODE)
                return tarn::ToInt32(text->content ? reinterpret_cast<const char*>(text->content) : "");
        }
        return tarn::ToInt32("");
    }
    return 0;
}

void childDataRaw(benchmark::State& state, int count)
{
    const std::string text = childrenText(count);
    xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "dummy.xml", nullptr, XML_PARSE_NODICT);
    const xmlNode* root = xmlDocGetRootElement(doc);
    const std::string name = "c" + std::to_string(count - 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(rawChildInt32(root, name.c_str()));
    if (rawChildInt32(root, name.c_str()) != count - 1)
        state.SkipWithError("wrong value");
    xmlFreeDoc(doc);
}

// A subtree of 10 000 nodes: 2 500 elements, each with an attribute (two nodes) and a text child.
std::string subtreeText()
{
    std::string text = "<r>";
    for (int i = 0; i < 2500; ++i)
        text += "<item id=\"" + std::to_string(i) + "\">value " + std::to_string(i) + "</item>";
    return text + "</r>";
}

void cloneLibrary(benchmark::State& state)
{
    const tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(subtreeText());
    const tarn::XmlNodePtr root = doc->GetRoot();
    for (auto _ : state) {
        tarn::XmlNodePtr copy = root->Clone();  // freed with its handle
        benchmark::DoNotOptimize(copy.get());
    }
}

void cloneRaw(benchmark::State& state)
{
    const std::string text = subtreeText();
    xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "dummy.xml", nullptr, XML_PARSE_NODICT);
    xmlNode* root = xmlDocGetRootElement(doc);
    for (auto _ : state) {
        xmlNode* copy = xmlCopyNode(root, 1);
        benchmark::DoNotOptimize(copy);
        xmlFreeNode(copy);
    }
    xmlFreeDoc(doc);
}

// Keeps every run's CPU time per iteration by name, for the ratios printed at the end (CPU time,
// so that other load on a shared machine does not skew the ratios).
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                times[run.benchmark_name()] = run.GetAdjustedCPUTime();
        }
    }
    std::map<std::string, double> times;
};

void printRatio(const RecordingReporter& reporter, const char* label, const std::string& numerator,
                const std::string& denominator, const char* unit)
{
    const auto top = reporter.times.find(numerator);
    const auto bottom = reporter.times.find(denominator);
    if (top == reporter.times.end() || bottom == reporter.times.end() || bottom->second <= 0)
        return;
    std::printf("%-44s %8.3f  (%.1f %s / %.1f %s)\n", label, top->second / bottom->second, top->second, unit,
                bottom->second, unit);
}

} // namespace

int main(int argc, char** argv)
{
    tarn::libXMLStartup();
    for (int count : {10, 1000}) {
        benchmark::RegisterBenchmark(("ChildDataInt32/library/" + std::to_string(count)).c_str(), childDataLibrary, count);
        benchmark::RegisterBenchmark(("ChildDataInt32/raw/" + std::to_string(count)).c_str(), childDataRaw, count);
    }
    benchmark::RegisterBenchmark("Clone10000/library", cloneLibrary)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("Clone10000/raw", cloneRaw)->Unit(benchmark::kMicrosecond);

    benchmark::Initialize(&argc, argv);
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    printRatio(reporter, "GetChildDataInt32, 10 children (lib/raw)", "ChildDataInt32/library/10", "ChildDataInt32/raw/10", "ns");
    printRatio(reporter, "GetChildDataInt32, 1000 children (lib/raw)", "ChildDataInt32/library/1000",
               "ChildDataInt32/raw/1000", "ns");
    printRatio(reporter, "Clone of 10000 nodes, speed (raw/lib)", "Clone10000/raw", "Clone10000/library", "us");
    benchmark::Shutdown();
    return 0;
}
