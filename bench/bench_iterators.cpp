// Iterator cost against raw libxml2 on the same trees in the same run:
//  - child iteration over 100 000 element children interleaved with whitespace text, against a
//    children/next pointer walk that skips non-elements (ns per element step), separately and
//    paired (both walks alternating in one benchmark: the ratio the summary reports);
//  - the same library walk against the floor that GetNext's signature sets: the raw walk plus, at
//    each element, one handle returned by value from an out-of-line call and assigned to the loop
//    variable (one atomic increment and one atomic decrement of boost's count). No iterator that
//    returns a shared pointer per step can be faster than that;
//  - XmlDocument::GetIterator("//record") plus a full walk over a generated 20 MB document,
//    against xmlXPathEvalExpression plus a loop over the node set.
// The medians of the repetitions are compared at the end and printed as ratios, of CPU time (the
// build machine is shared, so wall time mostly measures the other processes) and of real time.
#include "BenchSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlIterators.h"
#include "tarnxml/XmlNode.h"

#include <benchmark/benchmark.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <cstdio>
#include <string>

namespace {

constexpr int kChildren = 100000;
constexpr std::size_t kRecordsBytes = 20u * 1024u * 1024u;

std::string childrenDocument()
{
    std::string text = "<r>\n";
    text.reserve(static_cast<std::size_t>(kChildren) * 16);
    for (int i = 0; i < kChildren; ++i)
        text += "  <c/>\n";
    return text + "</r>\n";
}

// Records with an attribute, two child elements each and indentation, to about 20 MB.
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

tarn::XmlDocumentPtr& childrenTree()
{
    static tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(childrenDocument());
    return document;
}

tarn::XmlDocumentPtr& recordsTree()
{
    static tarn::XmlDocumentPtr document = tarn::CreateXmlDocument(recordsDocument());
    return document;
}

// The library's walk over `root`'s element children, counting the steps.
inline void libraryWalk(const tarn::XmlNodePtr& root, long& steps)
{
    tarn::XmlNodeIterator* iterator = root->GetIterator();
    for (tarn::XmlNodePtr child = iterator->GetFirst(); child; child = iterator->GetNext()) {
        benchmark::DoNotOptimize(child.get());
        ++steps;
    }
}

void BM_ChildIterator_Library(benchmark::State& state)
{
    const tarn::XmlNodePtr root = childrenTree()->GetRoot();
    long steps = 0;
    for (auto _ : state)
        libraryWalk(root, steps);
    state.SetItemsProcessed(steps);
    state.counters["ns_per_step"] =
        benchmark::Counter(static_cast<double>(steps), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_ChildIterator_RawPointerWalk(benchmark::State& state)
{
    xmlNode* root = childrenTree()->GetRoot()->getlibXML2Node();
    long steps = 0;
    for (auto _ : state) {
        for (xmlNode* child = root->children; child != nullptr; child = child->next) {
            if (child->type != XML_ELEMENT_NODE)
                continue;
            benchmark::DoNotOptimize(child);
            ++steps;
        }
    }
    state.SetItemsProcessed(steps);
    state.counters["ns_per_step"] =
        benchmark::Counter(static_cast<double>(steps), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_XPathRecords_Library(benchmark::State& state)
{
    const tarn::XmlDocumentPtr& document = recordsTree();
    long records = 0;
    for (auto _ : state) {
        tarn::XPathNodeIterator* iterator = document->GetIterator("//record");
        for (tarn::XmlNodePtr record = iterator->GetFirst(); record; record = iterator->GetNext()) {
            benchmark::DoNotOptimize(record.get());
            ++records;
        }
    }
    state.SetItemsProcessed(records);
}

void BM_XPathRecords_RawLibxml2(benchmark::State& state)
{
    xmlDoc* doc = recordsTree()->GetRoot()->getlibXML2Node()->doc;
    long records = 0;
    for (auto _ : state) {
        xmlXPathContext* context = xmlXPathNewContext(doc);
        xmlXPathObject* result = xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>("//record"), context);
        if (result != nullptr && result->nodesetval != nullptr) {
            const xmlNodeSet* set = result->nodesetval;
            for (int i = 0; i < set->nodeNr; ++i) {
                xmlNode* node = set->nodeTab[i];
                if (node->type != XML_ELEMENT_NODE)
                    continue;
                benchmark::DoNotOptimize(node);
                ++records;
            }
        }
        xmlXPathFreeObject(result);
        xmlXPathFreeContext(context);
    }
    state.SetItemsProcessed(records);
}

// Both walks in one benchmark, alternating, each timed on the thread's CPU clock: the ratio that
// the summary reports (the separate benchmarks above run seconds apart under different load).
void BM_ChildIterator_Paired(benchmark::State& state)
{
    const tarn::XmlNodePtr root = childrenTree()->GetRoot();
    xmlNode* rawRoot = root->getlibXML2Node();
    long steps = 0;
    tarnbench::paired(
        state, 1,
        [&] { libraryWalk(root, steps); },
        [&] {
            for (xmlNode* child = rawRoot->children; child != nullptr; child = child->next) {
                if (child->type != XML_ELEMENT_NODE)
                    continue;
                benchmark::DoNotOptimize(child);
                ++steps;
            }
        },
        kChildren);
    benchmark::DoNotOptimize(steps);
}

// Returns a copy of `handle`, as GetNext returns its item: kept out of line so that the compiler
// cannot merge the count's increment with the caller's decrement.
__attribute__((noinline)) tarn::XmlNodePtr handleCopy(const tarn::XmlNodePtr& handle, xmlNode* node)
{
    benchmark::DoNotOptimize(node);
    return handle;
}

void BM_ChildIterator_PairedFloor(benchmark::State& state)
{
    const tarn::XmlNodePtr root = childrenTree()->GetRoot();
    xmlNode* rawRoot = root->getlibXML2Node();
    const tarn::XmlNodePtr held(new tarn::XmlNode);
    long steps = 0;
    tarnbench::paired(
        state, 1,
        [&] { libraryWalk(root, steps); },
        [&] {
            tarn::XmlNodePtr child;
            for (xmlNode* node = rawRoot->children; node != nullptr; node = node->next) {
                if (node->type != XML_ELEMENT_NODE)
                    continue;
                child = handleCopy(held, node);
                benchmark::DoNotOptimize(child.get());
                ++steps;
            }
        },
        kChildren);
    benchmark::DoNotOptimize(steps);
}

BENCHMARK(BM_ChildIterator_Paired)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_ChildIterator_PairedFloor)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_ChildIterator_Library)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_ChildIterator_RawPointerWalk)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_XPathRecords_Library)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_XPathRecords_RawLibxml2)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    if (!childrenTree() || !recordsTree()) {
        std::fprintf(stderr, "could not build the benchmark documents\n");
        return 1;
    }
    // The first 20 MB query of a process grows the heap; do that before anything is timed, so
    // that neither side of the comparison pays for it.
    for (int i = 0; i < 2; ++i) {
        tarn::XPathNodeIterator* iterator = recordsTree()->GetIterator("//record");
        for (tarn::XmlNodePtr record = iterator->GetFirst(); record; record = iterator->GetNext())
            benchmark::DoNotOptimize(record.get());
    }
    return tarnbench::runBenchmarks(argc, argv, [](const tarnbench::TimesReporter& reporter) {
        const auto ratio = [&](const std::string& raw, const std::string& library, const char* what) {
            const tarnbench::Times* r = reporter.find(raw + "/repeats:5");
            const tarnbench::Times* l = reporter.find(library + "/repeats:5");
            if (r == nullptr || l == nullptr || l->cpu <= 0 || l->real <= 0)
                return;
            // Above 1 the library is faster than the raw code; 1 means equal speed.
            std::printf("%s: raw/library ratio %.3f of CPU time (library %.4g, raw %.4g), %.3f of real time\n",
                        what, r->cpu / l->cpu, l->cpu, r->cpu, r->real / l->real);
        };
        ratio("BM_ChildIterator_RawPointerWalk", "BM_ChildIterator_Library", "child iteration");
        ratio("BM_XPathRecords_RawLibxml2", "BM_XPathRecords_Library", "XPath //record + walk");
        tarnbench::pairedRow(reporter, "BM_ChildIterator_Paired/repeats:5", "child iteration vs raw pointer walk",
                             ">= 0.90", "step");
        // The raw side here is the floor: the raw walk plus one returned handle per step.
        tarnbench::pairedRow(reporter, "BM_ChildIterator_PairedFloor/repeats:5",
                             "child iteration vs raw walk + one returned handle per step", "", "step");
        const tarnbench::Times* xr = reporter.find("BM_XPathRecords_RawLibxml2/repeats:5");
        const tarnbench::Times* xl = reporter.find("BM_XPathRecords_Library/repeats:5");
        if (xr != nullptr && xl != nullptr && xl->cpu > 0)
            tarnbench::summary("XPath //record + walk, 20 MB", tarnbench::ratioText(xr->cpu / xl->cpu), "",
                               tarnbench::timeText(xl->cpu * 1e6) + " vs " + tarnbench::timeText(xr->cpu * 1e6) +
                                   " raw");
    });
}
