// Child content lookup and subtree cloning: the library next to the same work done with raw
// libxml2 on the very same tree. Each benchmark alternates batches of library calls and raw calls
// and times each batch on the thread's CPU clock, so that other load on a shared machine hits
// both sides alike. Counters: lib_ns and raw_ns per call, and raw/lib (1.0 = as fast as raw).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <libxml/tree.h>

#include "BenchSupport.h"
#include "tarn/shared.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace {

using tarnbench::paired;

// <r><c0>0</c0><c1>1</c1>...</r>; the wanted child is the last one, so both sides walk them all.
std::string childrenText(int count)
{
    std::string text = "<r>";
    for (int i = 0; i < count; ++i)
        text += "<c" + std::to_string(i) + ">" + std::to_string(i) + "</c" + std::to_string(i) + ">";
    return text + "</r>";
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

void GetChildDataInt32(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    const tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(childrenText(count));
    const tarn::XmlNodePtr root = doc->GetRoot();
    const xmlNode* rawRoot = root->getlibXML2Node();
    const std::string name = "c" + std::to_string(count - 1);
    if (root->GetChildDataInt32(name) != count - 1 || rawChildInt32(rawRoot, name.c_str()) != count - 1) {
        state.SkipWithError("wrong value");
        return;
    }
    paired(state, count >= 1000 ? 10 : 1000,
           [&] { benchmark::DoNotOptimize(root->GetChildDataInt32(name)); },
           [&] { benchmark::DoNotOptimize(rawChildInt32(rawRoot, name.c_str())); });
}
BENCHMARK(GetChildDataInt32)->Arg(10)->Arg(1000)->Repetitions(5)->ReportAggregatesOnly(true);

// A subtree of 10 000 nodes: 2 500 elements, each with an attribute (two nodes) and a text child.
void Clone10000Nodes(benchmark::State& state)
{
    std::string text = "<r>";
    for (int i = 0; i < 2500; ++i)
        text += "<item id=\"" + std::to_string(i) + "\">value " + std::to_string(i) + "</item>";
    const tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(text + "</r>");
    const tarn::XmlNodePtr root = doc->GetRoot();
    xmlNode* rawRoot = root->getlibXML2Node();
    paired(state, 1,
           [&] {
               tarn::XmlNodePtr copy = root->Clone();  // freed with its handle
               benchmark::DoNotOptimize(copy.get());
           },
           [&] {
               xmlNode* copy = xmlCopyNode(rawRoot, 1);
               benchmark::DoNotOptimize(copy);
               xmlFreeNode(copy);
           });
}
BENCHMARK(Clone10000Nodes)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

void report(const tarnbench::TimesReporter& reporter)
{
    tarnbench::pairedRow(reporter, "GetChildDataInt32/10/repeats:5", "GetChildDataInt32, 10 children", ">= 0.90");
    tarnbench::pairedRow(reporter, "GetChildDataInt32/1000/repeats:5", "GetChildDataInt32, 1000 children", "");
    tarnbench::pairedRow(reporter, "Clone10000Nodes/repeats:5", "Clone, 10 000 nodes", "");
}

} // namespace

int main(int argc, char** argv) { return tarnbench::runBenchmarks(argc, argv, report); }
