// Typed XPath evaluation (tarn::EvaluateXPath, tarn::XPathExpression) against raw libxml2 on the
// same generated 20 MB document in the same run:
//  - a selective path, //record[value > 990]/name: the library's typed node set (names, string
//    values, handles) against xmlXPathEval plus the string value of every node;
//  - a number, sum(//record/value): against xmlXPathEval reading floatval;
//  - every record, //record: the same as the first on a node set of 100 000+ nodes, where the
//    per-node handle and strings of the typed result weigh most.
// Raw code makes a context per query, as the library does; the library side compiles the text on
// each query too (EvaluateXPath), like xmlXPathEval. A compiled XPathExpression is measured for
// the record. Ratios (raw/library, of CPU and real time) are printed at the end.
// BM_All_Alternating runs the two sides of the last one alternately in every iteration, each
// timed on this thread's CPU clock, as the reader and writer ratios are: on a busy machine the
// separate runs above can be seconds apart under different load.
#include "BenchSupport.h"
#include "tarnxml/XPath.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

#include <benchmark/benchmark.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace {

constexpr std::size_t kRecordsBytes = 20u * 1024u * 1024u;

const char* const kSelective = "//record[value > 990]/name";
const char* const kSum = "sum(//record/value)";
const char* const kAll = "//record";

std::string recordsDocument()
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<records>\n";
    text.reserve(kRecordsBytes + 4096);
    for (int i = 0; text.size() < kRecordsBytes; ++i) {
        const std::string n = std::to_string(i);
        text += "  <record id=\"" + n + "\">\n    <name>record " + n + "</name>\n    <value>" +
                std::to_string(i * 7 % 1000) + ".25</value>\n  </record>\n";
    }
    return text + "</records>\n";
}

tarn::XmlDocumentPtr& recordsTree()
{
    static tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(recordsDocument());
    return document;
}

void typed(benchmark::State& state, const char* xpath)
{
    const tarn::XmlDocument& document = *recordsTree();
    std::size_t items = 0;
    for (auto _ : state) {
        const tarn::XPathResult result = tarn::EvaluateXPath(document, xpath);
        items += result.nodes.size();
        benchmark::DoNotOptimize(result.number);
        benchmark::DoNotOptimize(result.nodes.data());
    }
    state.counters["nodes"] = static_cast<double>(items) / static_cast<double>(state.iterations());
}

void compiled(benchmark::State& state, const char* xpath)
{
    const tarn::XmlDocument& document = *recordsTree();
    const tarn::XPathExpression expression(xpath);
    for (auto _ : state) {
        const tarn::XPathResult result = expression.Evaluate(document);
        benchmark::DoNotOptimize(result.nodes.data());
    }
}

// One raw query: xmlXPathEval, then the string value of every node of a node set. Returns the
// number of nodes.
std::size_t rawQuery(xmlDoc* doc, const char* xpath)
{
    std::size_t items = 0;
    xmlXPathContext* context = xmlXPathNewContext(doc);
    xmlXPathObject* result = xmlXPathEval(reinterpret_cast<const xmlChar*>(xpath), context);
    if (result != nullptr && result->type == XPATH_NODESET && result->nodesetval != nullptr) {
        const xmlNodeSet* set = result->nodesetval;
        for (int i = 0; i < set->nodeNr; ++i) {
            xmlChar* value = xmlXPathCastNodeToString(set->nodeTab[i]);
            benchmark::DoNotOptimize(value);
            xmlFree(value);
            ++items;
        }
    } else if (result != nullptr) {
        benchmark::DoNotOptimize(result->floatval);
    }
    xmlXPathFreeObject(result);
    xmlXPathFreeContext(context);
    return items;
}

void raw(benchmark::State& state, const char* xpath)
{
    xmlDoc* doc = recordsTree()->GetRoot()->getlibXML2Node()->doc;
    std::size_t items = 0;
    for (auto _ : state)
        items += rawQuery(doc, xpath);
    state.counters["nodes"] = static_cast<double>(items) / static_cast<double>(state.iterations());
}

// Both sides of the 100 000+ node query in every iteration, in alternating order (so that neither
// always inherits the other's freed memory); the result (and so its freeing) is inside the time.
void BM_All_Alternating(benchmark::State& state)
{
    const tarn::XmlDocument& document = *recordsTree();
    xmlDoc* doc = recordsTree()->GetRoot()->getlibXML2Node()->doc;
    tarnbench::paired(
        state, 1,
        [&] {
            const tarn::XPathResult result = tarn::EvaluateXPath(document, kAll);
            benchmark::DoNotOptimize(result.nodes.data());
        },
        [&] { benchmark::DoNotOptimize(rawQuery(doc, kAll)); });
}

void BM_Selective_Typed(benchmark::State& state) { typed(state, kSelective); }
void BM_Selective_Compiled(benchmark::State& state) { compiled(state, kSelective); }
void BM_Selective_RawLibxml2(benchmark::State& state) { raw(state, kSelective); }
void BM_Sum_Typed(benchmark::State& state) { typed(state, kSum); }
void BM_Sum_RawLibxml2(benchmark::State& state) { raw(state, kSum); }
void BM_All_Typed(benchmark::State& state) { typed(state, kAll); }
void BM_All_RawLibxml2(benchmark::State& state) { raw(state, kAll); }

#define TARN_XPATH_BENCH(name) \
    BENCHMARK(name)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true)
TARN_XPATH_BENCH(BM_Selective_Typed);
TARN_XPATH_BENCH(BM_Selective_Compiled);
TARN_XPATH_BENCH(BM_Selective_RawLibxml2);
TARN_XPATH_BENCH(BM_Sum_Typed);
TARN_XPATH_BENCH(BM_Sum_RawLibxml2);
TARN_XPATH_BENCH(BM_All_Typed);
TARN_XPATH_BENCH(BM_All_RawLibxml2);
BENCHMARK(BM_All_Alternating)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    if (!recordsTree()) {
        std::fprintf(stderr, "could not build the benchmark document\n");
        return 1;
    }
    // Grow the heap once before anything is timed, so that neither side pays for it.
    for (int i = 0; i < 2; ++i)
        benchmark::DoNotOptimize(tarn::EvaluateXPath(*recordsTree(), kAll).nodes.data());
    return tarnbench::runBenchmarks(argc, argv, [](const tarnbench::TimesReporter& reporter) {
        // Runs with repetitions are kept under "NAME/repeats:N".
        const auto find = [&](const std::string& name) -> const tarnbench::Times* {
            for (const auto& entry : reporter.all())
                if (entry.first == name || entry.first.rfind(name + "/", 0) == 0)
                    return &entry.second;
            return nullptr;
        };
        const auto ratio = [&](const char* rawName, const char* library, const char* what) {
            const tarnbench::Times* r = find(rawName);
            const tarnbench::Times* l = find(library);
            if (r == nullptr || l == nullptr || l->cpu <= 0 || l->real <= 0)
                return;
            // Above 1 the library is faster than the raw code; 1 means equal speed.
            std::printf("%s: raw/library ratio %.3f of CPU time (library %.4g, raw %.4g), %.3f of real time\n",
                        what, r->cpu / l->cpu, l->cpu, r->cpu, r->real / l->real);
        };
        ratio("BM_Selective_RawLibxml2", "BM_Selective_Typed", "typed XPath, selective path");
        ratio("BM_Selective_RawLibxml2", "BM_Selective_Compiled", "compiled XPath, selective path");
        ratio("BM_Sum_RawLibxml2", "BM_Sum_Typed", "typed XPath, number");
        ratio("BM_All_RawLibxml2", "BM_All_Typed", "typed XPath, 100 000+ nodes");
        tarnbench::pairedRow(reporter, "BM_All_Alternating/repeats:5", "typed XPath, 100 000+ nodes (//record, 20 MB)",
                             ">= 0.95");
    });
}
