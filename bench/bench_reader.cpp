// Walking a document with tarn::XmlReader, reading name() and value() at every node, against raw
// libxml2 text reader loops over the same text in the same run:
//   raw_copy  - xmlTextReaderName / xmlTextReaderValue, copied into std::string, then xmlFree
//               (the owned strings as libxml2's API hands them out)
//   raw_const - xmlTextReaderConstName / xmlTextReaderConstValue, nothing copied (the floor: the
//               library reads the same const text and copies it once into its std::string)
// reader/ratio runs the three loops back to back and reports raw time / library time as counters
// (vs_raw_copy, vs_raw_const; 1.0 = as fast as raw).
#include <benchmark/benchmark.h>

#include <libxml/xmlmemory.h>
#include <libxml/xmlreader.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>

#include "BenchSupport.h"
#include "tarnxml/XmlReader.h"

namespace {

// About 8 MB of mixed content: attributes, short and long text, entities, comments, empty elements.
std::string generated()
{
    std::string doc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalog xmlns:c=\"urn:catalog\">\n";
    for (int i = 0; i < 40000; ++i) {
        const std::string n = std::to_string(i);
        doc += "  <c:item id=\"" + n + "\" kind=\"k" + std::to_string(i % 7) + "\">\n";
        doc += "    <name>Item number " + n + "</name>\n";
        doc += "    <desc xml:lang=\"en\">A somewhat longer description of item " + n +
               " with an entity &amp; some more words so that it exceeds small buffers.</desc>\n";
        doc += "    <price currency=\"EUR\">" + std::to_string(i % 1000) + ".99</price>\n";
        if (i % 10 == 0)
            doc += "    <!-- every tenth item carries a comment -->\n";
        doc += "    <flag/>\n  </c:item>\n";
    }
    doc += "</catalog>\n";
    return doc;
}

const std::string& input(int which)
{
    static const std::string mime = tarnbench::readFile(tarnbench::kFreedesktopXml);
    static const std::string gen = generated();
    return which == 0 ? mime : gen;
}

const char* inputName(int which) { return which == 0 ? "mime" : "generated"; }

bool skipIfMissing(benchmark::State& state, const std::string& doc)
{
    if (doc.empty()) {
        state.SkipWithError("input not present");
        return true;
    }
    return false;
}

void setCounters(benchmark::State& state, const std::string& doc, std::size_t nodes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(doc.size()));
    state.counters["nodes"] = static_cast<double>(nodes);
}

// The three walks. Each returns the number of nodes and adds the bytes it read to `bytes`.
std::size_t walkLibrary(tarn::XmlReader& reader, std::size_t& bytes)
{
    reader.reset();  // a fresh libxml2 reader over the held text, as the raw loops make
    std::size_t nodes = 0;
    while (reader.read()) {
        const std::string name = reader.name();
        const std::string value = reader.value();
        bytes += name.size() + value.size();
        ++nodes;
    }
    return nodes;
}

std::string ownedCopy(xmlChar* text)
{
    std::string copy = text != nullptr ? std::string(reinterpret_cast<const char*>(text)) : std::string();
    xmlFree(text);
    return copy;
}

std::size_t walkRawCopy(const std::string& doc, std::size_t& bytes)
{
    xmlTextReaderPtr reader = xmlReaderForDoc(reinterpret_cast<const xmlChar*>(doc.c_str()), "", nullptr, 0);
    std::size_t nodes = 0;
    while (xmlTextReaderRead(reader) == 1) {
        const std::string name = ownedCopy(xmlTextReaderName(reader));
        const std::string value = ownedCopy(xmlTextReaderValue(reader));
        bytes += name.size() + value.size();
        ++nodes;
    }
    xmlFreeTextReader(reader);
    return nodes;
}

std::size_t walkRawConst(const std::string& doc, std::size_t& bytes)
{
    xmlTextReaderPtr reader = xmlReaderForDoc(reinterpret_cast<const xmlChar*>(doc.c_str()), "", nullptr, 0);
    std::size_t nodes = 0;
    while (xmlTextReaderRead(reader) == 1) {
        const xmlChar* name = xmlTextReaderConstName(reader);
        const xmlChar* value = xmlTextReaderConstValue(reader);
        bytes += (name != nullptr ? std::strlen(reinterpret_cast<const char*>(name)) : 0) +
                 (value != nullptr ? std::strlen(reinterpret_cast<const char*>(value)) : 0);
        ++nodes;
    }
    xmlFreeTextReader(reader);
    return nodes;
}

void BM_Library(benchmark::State& state)
{
    const std::string& doc = input(static_cast<int>(state.range(0)));
    if (skipIfMissing(state, doc))
        return;
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
    tarn::XmlReader reader(doc);
    std::size_t bytes = 0;
    std::size_t nodes = walkLibrary(reader, bytes);  // warm-up: heap and caches
    for (auto _ : state)
        nodes = walkLibrary(reader, bytes);
    benchmark::DoNotOptimize(bytes);
    setCounters(state, doc, nodes);
}

void BM_RawCopy(benchmark::State& state)
{
    const std::string& doc = input(static_cast<int>(state.range(0)));
    if (skipIfMissing(state, doc))
        return;
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
    std::size_t bytes = 0;
    std::size_t nodes = walkRawCopy(doc, bytes);  // warm-up: heap and caches
    for (auto _ : state)
        nodes = walkRawCopy(doc, bytes);
    benchmark::DoNotOptimize(bytes);
    setCounters(state, doc, nodes);
}

void BM_RawConst(benchmark::State& state)
{
    const std::string& doc = input(static_cast<int>(state.range(0)));
    if (skipIfMissing(state, doc))
        return;
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
    std::size_t bytes = 0;
    std::size_t nodes = walkRawConst(doc, bytes);  // warm-up: heap and caches
    for (auto _ : state)
        nodes = walkRawConst(doc, bytes);
    benchmark::DoNotOptimize(bytes);
    setCounters(state, doc, nodes);
}

// The ratios. On a busy machine the separate benchmarks above run minutes apart under different
// load, so here every iteration walks the document with all three loops back to back, each timed
// by this thread's CPU clock, and the ratios compare the fastest walk of each loop.
//   vs_raw_copy  = raw_copy time / library time  (1.0 = as fast as the same copies done raw)
//   vs_raw_const = raw_const time / library time (what the owned strings cost)
void BM_Ratio(benchmark::State& state)
{
    const std::string& doc = input(static_cast<int>(state.range(0)));
    if (skipIfMissing(state, doc))
        return;
    state.SetLabel(inputName(static_cast<int>(state.range(0))));
    tarn::XmlReader reader(doc);
    double bestLibrary = 1e30;
    double bestCopy = 1e30;
    double bestConst = 1e30;
    std::size_t bytes = 0;
    for (auto _ : state) {
        double start = tarnbench::threadCpuSeconds();
        walkLibrary(reader, bytes);
        double end = tarnbench::threadCpuSeconds();
        bestLibrary = std::min(bestLibrary, end - start);
        start = end;
        walkRawCopy(doc, bytes);
        end = tarnbench::threadCpuSeconds();
        bestCopy = std::min(bestCopy, end - start);
        start = end;
        walkRawConst(doc, bytes);
        end = tarnbench::threadCpuSeconds();
        bestConst = std::min(bestConst, end - start);
    }
    benchmark::DoNotOptimize(bytes);
    state.counters["library_ms"] = bestLibrary * 1e3;
    state.counters["raw_copy_ms"] = bestCopy * 1e3;
    state.counters["raw_const_ms"] = bestConst * 1e3;
    state.counters["vs_raw_copy"] = bestCopy / bestLibrary;
    state.counters["vs_raw_const"] = bestConst / bestLibrary;
}

} // namespace

BENCHMARK(BM_Library)->Name("reader/library")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawCopy)->Name("reader/raw_copy")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawConst)->Name("reader/raw_const")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Ratio)->Name("reader/ratio")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(3.0);

// --- Streaming: XmlReader::openFd against a raw xmlReaderForFd walk ------------------------------
//   reader/stream_ratio  - both walks over the same file back to back, name() and value() copied
//                          at every node as in the in-memory walks; vs_raw_fd = raw / library
//   reader/stream_memory - the library streams a generated file of N MB; peak_rss_mb is the
//                          process's high-water mark after the walk (runs in increasing size, so
//                          a flat figure means constant memory). TARNXML_BENCH_STREAM_MB=1000 adds
//                          a 1 GB run (written to $TMPDIR and removed afterwards).
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// A temporary file holding `megabytes` of the generated catalogue (repeated), removed at exit.
class GeneratedFile {
public:
    explicit GeneratedFile(std::size_t megabytes)
    {
        const char* dir = std::getenv("TMPDIR");
        path_ = std::string(dir != nullptr ? dir : "/tmp") + "/tarnxml-bench-XXXXXX";
        const int fd = ::mkstemp(&path_[0]);
        const std::string& body = input(1);
        const std::string open = "<stream xmlns:c=\"urn:catalog\">\n";
        // The catalogue's items without its own declaration and root, repeated.
        const std::string::size_type first = body.find("  <c:item");
        const std::string::size_type last = body.rfind("</catalog>");
        const std::string items = body.substr(first, last - first);
        std::string head = open;
        ssize_t ignored = ::write(fd, head.data(), head.size());
        std::size_t written = head.size();
        while (written < megabytes * 1000000) {
            ignored = ::write(fd, items.data(), items.size());
            written += items.size();
        }
        const std::string close = "</stream>\n";
        ignored = ::write(fd, close.data(), close.size());
        (void)ignored;
        ::close(fd);
    }
    ~GeneratedFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

const std::string& streamFile()
{
    static const GeneratedFile file(8);
    return file.path();
}

std::size_t walkStreamLibrary(int fd, std::size_t& bytes)
{
    ::lseek(fd, 0, SEEK_SET);
    tarn::XmlReader reader;
    reader.openFd(fd, tarn::XmlReaderOptions());
    std::size_t nodes = 0;
    while (reader.read()) {
        const std::string name = reader.name();
        const std::string value = reader.value();
        bytes += name.size() + value.size();
        ++nodes;
    }
    return nodes;
}

std::size_t walkStreamRaw(int fd, std::size_t& bytes)
{
    ::lseek(fd, 0, SEEK_SET);
    xmlTextReaderPtr reader = xmlReaderForFd(fd, "", nullptr, 0);
    std::size_t nodes = 0;
    while (xmlTextReaderRead(reader) == 1) {
        const std::string name = ownedCopy(xmlTextReaderName(reader));
        const std::string value = ownedCopy(xmlTextReaderValue(reader));
        bytes += name.size() + value.size();
        ++nodes;
    }
    xmlFreeTextReader(reader);
    return nodes;
}

void BM_StreamRatio(benchmark::State& state)
{
    const int fd = ::open(streamFile().c_str(), O_RDONLY);
    double bestLibrary = 1e30;
    double bestRaw = 1e30;
    std::size_t bytes = 0;
    std::size_t nodes = 0;
    bool libraryFirst = true;
    for (auto _ : state) {
        // Alternating the order keeps whatever the first walk pays (page cache, heap) off one side.
        for (int turn = 0; turn < 2; ++turn) {
            const double start = tarnbench::threadCpuSeconds();
            if ((turn == 0) == libraryFirst)
                nodes = walkStreamLibrary(fd, bytes);
            else
                walkStreamRaw(fd, bytes);
            const double spent = tarnbench::threadCpuSeconds() - start;
            double& best = (turn == 0) == libraryFirst ? bestLibrary : bestRaw;
            best = std::min(best, spent);
        }
        libraryFirst = !libraryFirst;
    }
    ::close(fd);
    benchmark::DoNotOptimize(bytes);
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["library_ms"] = bestLibrary * 1e3;
    state.counters["raw_fd_ms"] = bestRaw * 1e3;
    state.counters["vs_raw_fd"] = bestRaw / bestLibrary;
}

void BM_StreamMemory(benchmark::State& state)
{
    const GeneratedFile file(static_cast<std::size_t>(state.range(0)));
    std::size_t bytes = 0;
    std::size_t nodes = 0;
    for (auto _ : state) {
        tarn::XmlReader reader;
        reader.openFile(file.path(), tarn::XmlReaderOptions());
        nodes = 0;
        while (reader.read()) {
            bytes += reader.name().size() + reader.value().size();
            ++nodes;
        }
    }
    benchmark::DoNotOptimize(bytes);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["peak_rss_mb"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

const bool g_streamMemoryRegistered = [] {
    benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark("reader/stream_memory", BM_StreamMemory);
    b->Arg(10)->Arg(100)->Iterations(1)->Unit(benchmark::kMillisecond);
    if (const char* extra = std::getenv("TARNXML_BENCH_STREAM_MB"))
        b->Arg(std::atol(extra));
    return true;
}();

} // namespace

BENCHMARK(BM_StreamRatio)->Name("reader/stream_ratio")->Unit(benchmark::kMillisecond)->MinTime(3.0);

int main(int argc, char** argv)
{
    return tarnbench::runBenchmarks(argc, argv, [](const tarnbench::TimesReporter& reporter) {
        for (int which = 0; which < 2; ++which) {
            const std::string name = "reader/ratio/" + std::to_string(which) + "/min_time:3.000";
            const double ratio = reporter.counter(name, "vs_raw_copy");
            if (ratio <= 0)
                continue;
            const std::string detail = tarnbench::timeText(reporter.counter(name, "library_ms") * 1e6) + " vs " +
                                       tarnbench::timeText(reporter.counter(name, "raw_copy_ms") * 1e6) + " raw (" +
                                       inputName(which) + ")";
            tarnbench::summary(std::string("reader name()+value() walk vs raw copying loop, ") + inputName(which),
                               tarnbench::ratioText(ratio), ">= 0.98", detail);
        }
        const std::string stream = "reader/stream_ratio/min_time:3.000";
        const double streamRatio = reporter.counter(stream, "vs_raw_fd");
        if (streamRatio > 0)
            tarnbench::summary("streaming reader (openFd) walk vs raw xmlReaderForFd walk",
                               tarnbench::ratioText(streamRatio), ">= 0.95",
                               tarnbench::timeText(reporter.counter(stream, "library_ms") * 1e6) + " vs " +
                                   tarnbench::timeText(reporter.counter(stream, "raw_fd_ms") * 1e6) + " raw");
    });
}
