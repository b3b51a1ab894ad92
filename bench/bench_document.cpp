// Documents and nodes against raw libxml2 on the same input: loading, serialising, building.
//
//   bench_document                      every benchmark, then the library/raw ratios
//   bench_document --peak=MODE          load the generated 20 MB document once and print the
//                                       peak resident size; MODE is text (generate only),
//                                       raw (xmlReadMemory) or library (XmlDocument::Load).
//                                       Run each under /usr/bin/time -v for an outside view.
//   bench_document --peak=MODE:INPUT    the same for the load comparison: MODE is also readonly
//                                       (Load with XmlLoadOptions::readOnly), rawdict
//                                       (xmlReadMemory with the dictionary) or pugi (pugixml's
//                                       load_buffer); INPUT is generated20 (default),
//                                       generated100 (100 MB) or freedesktop. Prints the load's
//                                       CPU time too.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <ctime>

#include <fmt/format.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <pugixml.hpp>

#include "BenchSupport.h"
#include "tarnxml/XmlDocument.h"
#include "tarnxml/XmlNode.h"

namespace {

constexpr int kParseOptions = XML_PARSE_NOERROR | XML_PARSE_NONET | XML_PARSE_NODICT;
constexpr int kTreeElements = 100000;
const std::string& freedesktop()
{
    static const std::string text = tarnbench::readFile(tarnbench::kFreedesktopXml);
    return text;
}

// About 20 MB (or `megabytes`) of records with attributes, escaped text and some non-ASCII UTF-8.
std::string generateDocument(std::size_t megabytes = 20)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalog>\n";
    for (int i = 0; text.size() < megabytes * 1024 * 1024; ++i)
        text += fmt::format("  <item id=\"{0}\" kind=\"k{1}\"><name>name {0} \xc3\xa9t\xc3\xa9</name>"
                            "<value>{2}</value><note>a &amp; b &lt; c</note></item>\n",
                            i, i % 7, i * 3);
    text += "</catalog>\n";
    return text;
}

const std::string& generated()
{
    static const std::string text = generateDocument();
    return text;
}

const std::string& input(int which) { return which == 0 ? freedesktop() : generated(); }
const char* inputName(int which) { return which == 0 ? "freedesktop" : "generated20MB"; }

void setBytes(benchmark::State& state, const std::string& text)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
}

// --- Load --------------------------------------------------------------------------------------

void Load_Library(benchmark::State& state)
{
    const std::string& text = input(static_cast<int>(state.range(0)));
    if (text.empty()) {
        state.SkipWithError("input missing");
        return;
    }
    tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument();
    for (auto _ : state) {
        if (doc->Load(text, false) != 0)
            state.SkipWithError("load failed");
        benchmark::DoNotOptimize(doc.get());
    }
    setBytes(state, text);
}

void Load_Raw(benchmark::State& state)
{
    const std::string& text = input(static_cast<int>(state.range(0)));
    if (text.empty()) {
        state.SkipWithError("input missing");
        return;
    }
    xmlDoc* doc = nullptr;
    for (auto _ : state) {
        if (doc != nullptr)
            xmlFreeDoc(doc); // the library frees the previous tree inside Load as well
        doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "dummy.xml", nullptr, kParseOptions);
        if (doc == nullptr)
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc);
    }
    xmlFreeDoc(doc);
    setBytes(state, text);
}

// --- Read-only load: the library's readOnly Load against raw libxml2 with the dictionary, and
// pugixml's parse of the same text (LoadReadOnly_Pugi, printed beside the ratios).

void LoadReadOnly_Library(benchmark::State& state)
{
    const std::string& text = input(static_cast<int>(state.range(0)));
    if (text.empty()) {
        state.SkipWithError("input missing");
        return;
    }
    tarn::XmlLoadOptions options;
    options.readOnly = true;
    tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument();
    for (auto _ : state) {
        if (doc->Load(text, options) != 0)
            state.SkipWithError("load failed");
        benchmark::DoNotOptimize(doc.get());
    }
    setBytes(state, text);
}

void LoadReadOnly_Raw(benchmark::State& state)
{
    const std::string& text = input(static_cast<int>(state.range(0)));
    if (text.empty()) {
        state.SkipWithError("input missing");
        return;
    }
    xmlDoc* doc = nullptr;
    for (auto _ : state) {
        if (doc != nullptr)
            xmlFreeDoc(doc);
        doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "dummy.xml", nullptr,
                            kParseOptions & ~XML_PARSE_NODICT);
        if (doc == nullptr)
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc);
    }
    xmlFreeDoc(doc);
    setBytes(state, text);
}

void LoadReadOnly_Pugi(benchmark::State& state)
{
    const std::string& text = input(static_cast<int>(state.range(0)));
    if (text.empty()) {
        state.SkipWithError("input missing");
        return;
    }
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_buffer(text.data(), text.size()))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc.first_child().internal_object());
    }
    setBytes(state, text);
}

// --- OuterXml -------------------------------------------------------------------------------------

void OuterXml_Library(benchmark::State& state)
{
    tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument(input(static_cast<int>(state.range(0))));
    tarn::XmlNodePtr root = doc->GetRoot();
    std::size_t size = 0;
    for (auto _ : state) {
        const std::string outer = root->OuterXml();
        size = outer.size();
        benchmark::DoNotOptimize(outer.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
}

void OuterXml_Raw(benchmark::State& state)
{
    const std::string& text = input(static_cast<int>(state.range(0)));
    xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "dummy.xml", nullptr, kParseOptions);
    xmlNode* root = xmlDocGetRootElement(doc);
    std::size_t size = 0;
    for (auto _ : state) {
        xmlBuffer* buffer = xmlBufferCreate();
        const int length = xmlNodeDump(buffer, doc, root, 0, 0);
        const std::string outer(reinterpret_cast<const char*>(xmlBufferContent(buffer)), static_cast<std::size_t>(length));
        xmlBufferFree(buffer);
        size = outer.size();
        benchmark::DoNotOptimize(outer.data());
    }
    xmlFreeDoc(doc);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
}

// --- Building a tree -------------------------------------------------------------------------------

void perElement(benchmark::State& state)
{
    // Seconds of CPU time per element, shown with an SI prefix ("250n" is 250 ns).
    state.counters["time_per_element"] = benchmark::Counter(
        static_cast<double>(kTreeElements), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// What AddChild("item", i) makes, built with libxml2 alone: <item>i</item>.
xmlNode* rawItem(int i)
{
    xmlNode* item = xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("item"));
    const fmt::format_int digits(i);
    xmlAddChild(item, xmlNewText(reinterpret_cast<const xmlChar*>(digits.c_str())));
    return item;
}

void Build_AddChildInt_Library(benchmark::State& state)
{
    for (auto _ : state) {
        tarn::XmlNodePtr root = tarn::CreateXmlNode("root", std::string());
        for (int i = 0; i < kTreeElements; ++i)
            root->AddChild("item", i);
        benchmark::DoNotOptimize(root.get());
    }
    perElement(state);
}

void Build_AddChildInt_Raw(benchmark::State& state)
{
    for (auto _ : state) {
        xmlNode* root = xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("root"));
        for (int i = 0; i < kTreeElements; ++i)
            xmlAddChild(root, rawItem(i));
        benchmark::DoNotOptimize(root);
        xmlFreeNode(root);
    }
    perElement(state);
}

void Build_CreateAndMove_Library(benchmark::State& state)
{
    for (auto _ : state) {
        tarn::XmlNodePtr root = tarn::CreateXmlNode("root", std::string());
        for (int i = 0; i < kTreeElements; ++i) {
            tarn::XmlNodePtr item = tarn::CreateXmlNode("item", i);
            root->AddChild(item);
        }
        benchmark::DoNotOptimize(root.get());
    }
    perElement(state);
}

void Build_CreateAndMove_Raw(benchmark::State& state)
{
    for (auto _ : state) {
        xmlNode* root = xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("root"));
        for (int i = 0; i < kTreeElements; ++i) {
            xmlNode* item = rawItem(i);
            xmlUnlinkNode(item);
            xmlAddChild(root, item);
        }
        benchmark::DoNotOptimize(root);
        xmlFreeNode(root);
    }
    perElement(state);
}

// CreateXmlNode + AddChild(handle) and the raw equivalent, alternating in one benchmark (each
// batch timed on the thread's CPU clock): the ratio the summary reports.
void Build_CreateAndMove_Paired(benchmark::State& state)
{
    tarnbench::paired(
        state, 1,
        [] {
            tarn::XmlNodePtr root = tarn::CreateXmlNode("root", std::string());
            for (int i = 0; i < kTreeElements; ++i) {
                tarn::XmlNodePtr item = tarn::CreateXmlNode("item", i);
                root->AddChild(item);
            }
            benchmark::DoNotOptimize(root.get());
        },
        [] {
            xmlNode* root = xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("root"));
            for (int i = 0; i < kTreeElements; ++i) {
                xmlNode* item = rawItem(i);
                xmlUnlinkNode(item);
                xmlAddChild(root, item);
            }
            benchmark::DoNotOptimize(root);
            xmlFreeNode(root);
        },
        kTreeElements);
}

// AddChild(name, int) against xmlNewNode + xmlNewText + xmlAddChild, paired the same way.
void Build_AddChildInt_Paired(benchmark::State& state)
{
    tarnbench::paired(
        state, 1,
        [] {
            tarn::XmlNodePtr root = tarn::CreateXmlNode("root", std::string());
            for (int i = 0; i < kTreeElements; ++i)
                root->AddChild("item", i);
            benchmark::DoNotOptimize(root.get());
        },
        [] {
            xmlNode* root = xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("root"));
            for (int i = 0; i < kTreeElements; ++i)
                xmlAddChild(root, rawItem(i));
            benchmark::DoNotOptimize(root);
            xmlFreeNode(root);
        },
        kTreeElements);
}

BENCHMARK(Build_CreateAndMove_Paired)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(Build_AddChildInt_Paired)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(Load_Library)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Load_Raw)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadReadOnly_Library)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadReadOnly_Raw)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadReadOnly_Pugi)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(OuterXml_Library)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(OuterXml_Raw)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Build_AddChildInt_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(Build_AddChildInt_Raw)->Unit(benchmark::kMillisecond);
BENCHMARK(Build_CreateAndMove_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(Build_CreateAndMove_Raw)->Unit(benchmark::kMillisecond);

// What a benchmark argument of the Load and OuterXml families stands for, for the summary.
std::string argumentText(const std::string& name)
{
    std::string text = name;
    const std::string::size_type slash = text.find('/');
    if (slash == std::string::npos)
        return text;
    const std::string arg = text.substr(slash + 1);
    text.erase(slash);
    if (arg == "0")
        return text + ", freedesktop.org.xml";
    if (arg == "1")
        return text + ", generated 20 MB";
    return text + " " + arg;
}

// The library/raw ratios (raw time over library time: 1.0 is parity, above 0.95 is the target),
// from CPU time per iteration (the medians when run with --benchmark_repetitions); the paired
// building benchmarks report their own ratio.
void printRatios(const tarnbench::TimesReporter& reporter)
{
    std::printf("\nlibrary vs raw libxml2 (raw time / library time; >= 0.95 is the target):\n");
    for (const auto& entry : reporter.all()) {
        const std::string& name = entry.first;
        const std::string::size_type at = name.find("_Library");
        if (at == std::string::npos)
            continue;
        const tarnbench::Times* raw = reporter.find(name.substr(0, at) + "_Raw" + name.substr(at + 8));
        if (raw == nullptr || entry.second.cpu <= 0)
            continue;
        const std::string path = name.substr(0, at).append(name.substr(at + 8));
        std::printf("  %-40s %.3f\n", path.c_str(), raw->cpu / entry.second.cpu);
        if (path.rfind("Build_", 0) != 0) // the paired building benchmarks below say it better
            tarnbench::summary(argumentText(path), tarnbench::ratioText(raw->cpu / entry.second.cpu), "",
                               tarnbench::timeText(entry.second.cpu * 1e6) + " vs " +
                                   tarnbench::timeText(raw->cpu * 1e6) + " raw");
    }
    for (const auto& entry : reporter.all())
        if (entry.first.rfind("LoadReadOnly_Pugi", 0) == 0)
            std::printf("  %-40s %.2f ms (pugixml)\n", entry.first.c_str(), entry.second.cpu);
    for (const auto& entry : reporter.all())
        if (entry.first.rfind("Build_", 0) == 0 && entry.first.find("_Paired") == std::string::npos)
            std::printf("  %-40s %.1f ns per element\n", entry.first.c_str(),
                        entry.second.cpu * 1e6 / kTreeElements); // times are in milliseconds
    tarnbench::pairedRow(reporter, "Build_CreateAndMove_Paired/repeats:5", "CreateXmlNode + AddChild(handle)",
                         ">= 0.95", "element");
    tarnbench::pairedRow(reporter, "Build_AddChildInt_Paired/repeats:5", "AddChild(name, int)", "", "element");
}

long peakKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double cpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

int peakMode(const char* argument)
{
    const std::string request(argument);
    const std::string::size_type colon = request.find(':');
    const std::string mode = request.substr(0, colon);
    const std::string which = colon == std::string::npos ? "generated20" : request.substr(colon + 1);
    std::string made;
    if (which == "generated100")
        made = generateDocument(100);
    const std::string& text = which == "freedesktop" ? freedesktop() : which == "generated100" ? made : generated();
    const long before = peakKilobytes();
    const double start = cpuSeconds();
    if (mode == "raw" || mode == "rawdict") {
        const int options = mode == "raw" ? kParseOptions : (kParseOptions & ~XML_PARSE_NODICT);
        xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "dummy.xml", nullptr, options);
        if (doc == nullptr)
            return 1;
        xmlFreeDoc(doc);
    } else if (mode == "library" || mode == "readonly") {
        tarn::XmlLoadOptions options;
        options.readOnly = mode == "readonly";
        tarn::XmlDocumentPtr doc = tarn::CreateXmlDocument();
        if (doc->Load(text, options) != 0)
            return 1;
    } else if (mode == "pugi") {
        pugi::xml_document doc;
        if (!doc.load_buffer(text.data(), text.size()))
            return 1;
    } else if (mode != "text") {
        std::fprintf(stderr, "unknown --peak mode %s\n", mode.c_str());
        return 2;
    }
    std::printf("peak=%s input=%s %zu bytes load_cpu_ms=%.0f peak_rss_before_kb=%ld peak_rss_kb=%ld\n",
                mode.c_str(), which.c_str(), text.size(), (cpuSeconds() - start) * 1e3, before, peakKilobytes());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], "--peak=", 7) == 0)
            return peakMode(argv[i] + 7);
    tarn::libXMLStartup();
    return tarnbench::runBenchmarks(argc, argv, printRatios);
}
