// The writer against pugixml used directly: building a 100 000-record document and printing it,
// and printing a large document again and again.
//
// BM_BuildAndPrint runs both sides in every iteration on the same prepared values and reports
// writer_ms, pugixml_ms (thread CPU time) and ratio = pugixml time / writer time (1.0 means no
// overhead). All times are CPU times.
// BM_WriterStr / BM_PugixmlPrint report bytes per second of str() and of pugixml's print alone
// (the latter by three routes: the library's block sink, one growing string, a string stream).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "BenchSupport.h"
#include "tarnxml/XmlHelper.h"
#include "tarnxml/XmlWriter.h"

namespace {

constexpr int kRecords = 100000;

struct Values {
    std::vector<std::string> ids;
    std::vector<std::string> texts;
};

const Values& values()
{
    static const Values v = [] {
        Values out;
        out.ids.reserve(kRecords);
        out.texts.reserve(kRecords);
        for (int i = 0; i < kRecords; ++i) {
            out.ids.push_back(std::to_string(i));
            out.texts.push_back("record text number " + std::to_string(i) + " with caf\xC3\xA9 & <markup>");
        }
        return out;
    }();
    return v;
}

// What a pugixml user would write: append every chunk to one string.
class StringSink final : public pugi::xml_writer {
public:
    explicit StringSink(std::string& out) : out_(out) {}
    void write(const void* data, size_t size) override { out_.append(static_cast<const char*>(data), size); }

private:
    std::string& out_;
};

// The way the library prints: small output straight into the string, large output in 64 KiB
// blocks copied once into a string of the final size (no repeated regrowth of one big string).
class BlockSink final : public pugi::xml_writer {
public:
    explicit BlockSink(std::string& out) : out_(out) { out_.reserve(1024); }
    void write(const void* data, size_t size) override
    {
        const char* bytes = static_cast<const char*>(data);
        if (blocks_.empty() && out_.size() + size <= kBlock) {
            out_.append(bytes, size);
            return;
        }
        while (size != 0) {
            if (blocks_.empty() || blocks_.back().size() == kBlock) {
                blocks_.emplace_back();
                blocks_.back().reserve(kBlock);
            }
            const size_t take = std::min(size, kBlock - blocks_.back().size());
            blocks_.back().append(bytes, take);
            bytes += take;
            size -= take;
        }
    }
    void finish()
    {
        size_t total = out_.size();
        for (const std::string& block : blocks_)
            total += block.size();
        out_.reserve(total);
        for (const std::string& block : blocks_)
            out_.append(block);
    }

private:
    static constexpr size_t kBlock = 64 * 1024;
    std::string& out_;
    std::vector<std::string> blocks_;
};

void buildWithWriter(tarn::XmlWriter& w, const Values& v)
{
    w.startDocument(nullptr, nullptr, nullptr);
    w.startElement("records");
    for (int i = 0; i < kRecords; ++i) {
        w.startElement("record");
        w.writeAttribute("id", v.ids[i]);
        w.writeAttribute("kind", "sample");
        w.writeText(v.texts[i]);
        w.endElement();
    }
    w.endElement();
}

void buildWithPugixml(pugi::xml_document& doc, const Values& v)
{
    pugi::xml_node decl = doc.prepend_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "UTF-8";
    pugi::xml_node root = doc.append_child("records");
    for (int i = 0; i < kRecords; ++i) {
        pugi::xml_node record = root.append_child("record");
        record.append_attribute("id").set_value(v.ids[i].c_str());
        record.append_attribute("kind").set_value("sample");
        record.text().set(v.texts[i].c_str());
    }
}

enum class Route { Blocks, String, Stream };

std::string printWithPugixml(const pugi::xml_node& node, bool formatted, Route route = Route::Blocks)
{
    const char* indent = formatted ? "  " : "";
    const unsigned int flags = formatted ? pugi::format_indent : pugi::format_raw;
    std::string out;
    if (route == Route::Blocks) {
        BlockSink sink(out);
        node.print(sink, indent, flags, pugi::encoding_auto, 0);
        sink.finish();
    } else if (route == Route::String) {
        StringSink sink(out);
        node.print(sink, indent, flags, pugi::encoding_auto, 0);
    } else {
        std::ostringstream stream;
        node.print(stream, indent, flags, pugi::encoding_auto, 0);
        out = stream.str();
    }
    return out;
}

void BM_BuildAndPrint(benchmark::State& state)
{
    const bool formatted = state.range(0) != 0;
    const Values& v = values();
    double writerSeconds = 0;
    double pugiSeconds = 0;
    size_t bytes = 0;
    bool writerFirst = true;
    for (auto _ : state) {
        // Alternate the order so that neither side always inherits the other's freed memory.
        for (int side = 0; side < 2; ++side) {
            const bool writerTurn = (side == 0) == writerFirst;
            const double t0 = tarnbench::threadCpuSeconds();
            if (writerTurn) {
                tarn::XmlWriter w;
                w.setFormatted(formatted);
                w.setIndentString("  ");
                buildWithWriter(w, v);
                const std::string out = w.str();
                bytes = out.size();
                benchmark::DoNotOptimize(out.data());
            } else {
                pugi::xml_document doc;
                buildWithPugixml(doc, v);
                const std::string out = printWithPugixml(doc, formatted);
                benchmark::DoNotOptimize(out.data());
            }
            (writerTurn ? writerSeconds : pugiSeconds) += tarnbench::threadCpuSeconds() - t0;
        }
        writerFirst = !writerFirst;
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["writer_ms"] = writerSeconds / n * 1e3;
    state.counters["pugixml_ms"] = pugiSeconds / n * 1e3;
    state.counters["ratio"] = pugiSeconds / writerSeconds;
    state.counters["out_MB"] = static_cast<double>(bytes) / 1e6;
}
BENCHMARK(BM_BuildAndPrint)->ArgName("formatted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

// Only the building part of each side, to see where the time of the pair above goes.
void BM_WriterBuildOnly(benchmark::State& state)
{
    const Values& v = values();
    for (auto _ : state) {
        tarn::XmlWriter w;
        buildWithWriter(w, v);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_WriterBuildOnly)->Unit(benchmark::kMillisecond);

void BM_PugixmlBuildOnly(benchmark::State& state)
{
    const Values& v = values();
    for (auto _ : state) {
        pugi::xml_document doc;
        buildWithPugixml(doc, v);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PugixmlBuildOnly)->Unit(benchmark::kMillisecond);

// --- Repeated printing of one large document ------------------------------------------------------

void BM_WriterStr(benchmark::State& state)
{
    const bool formatted = state.range(0) != 0;
    tarn::XmlWriter w;
    w.setFormatted(formatted);
    w.setIndentString("  ");
    buildWithWriter(w, values());
    size_t bytes = 0;
    for (auto _ : state) {
        const std::string out = w.str();
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}
BENCHMARK(BM_WriterStr)->ArgName("formatted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// pugixml's print alone, by route: 0 blocks (as the library), 1 one growing string, 2 stream.
void BM_PugixmlPrint(benchmark::State& state)
{
    const bool formatted = state.range(0) != 0;
    const auto route = static_cast<Route>(state.range(1));
    pugi::xml_document doc;
    buildWithPugixml(doc, values());
    size_t bytes = 0;
    for (auto _ : state) {
        const std::string out = printWithPugixml(doc, formatted, route);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}
BENCHMARK(BM_PugixmlPrint)->ArgNames({"formatted", "route"})->ArgsProduct({{0, 1}, {0, 1, 2}})->Unit(benchmark::kMillisecond);

// The post-pass alone over printed text without "&#" (the common case) and with one reference.
void BM_NumericReferencePass(benchmark::State& state)
{
    pugi::xml_document doc;
    buildWithPugixml(doc, values());
    std::string printed = printWithPugixml(doc, false);
    if (state.range(0) != 0)
        printed.insert(printed.size() / 2, "&#1;");
    for (auto _ : state) {
        const std::string out = XmlHelper::replaceInvalidNumericEncodings(printed);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(printed.size()) * state.iterations());
}
BENCHMARK(BM_NumericReferencePass)->ArgName("with_reference")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void report(const tarnbench::TimesReporter& reporter)
{
    for (int formatted = 0; formatted < 2; ++formatted) {
        const std::string name = "BM_BuildAndPrint/formatted:" + std::to_string(formatted) + "/repeats:5";
        const double ratio = reporter.counter(name, "ratio");
        if (ratio <= 0)
            continue;
        const std::string detail = tarnbench::timeText(reporter.counter(name, "writer_ms") * 1e6) + " vs " +
                                   tarnbench::timeText(reporter.counter(name, "pugixml_ms") * 1e6) + " pugixml";
        tarnbench::summary(std::string("writer build + str() vs pugixml, ") + (formatted ? "formatted" : "raw"),
                           tarnbench::ratioText(ratio), ">= 0.95", detail);
    }
}

} // namespace

int main(int argc, char** argv) { return tarnbench::runBenchmarks(argc, argv, report); }
