// The writer against pugixml used directly: building a 100 000-record document and printing it,
// and printing a large document again and again.
//
// BM_BuildAndPrint runs both sides in every iteration on the same prepared values and reports
// writer_ms, pugixml_ms and ratio = pugixml time / writer time (1.0 means no overhead).
// BM_WriterStr / BM_PugixmlPrint* report bytes per second of str() and of pugixml's print alone.
#include <benchmark/benchmark.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <pugixml.hpp>

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

class StringSink final : public pugi::xml_writer {
public:
    explicit StringSink(std::string& out) : out_(out) {}
    void write(const void* data, size_t size) override { out_.append(static_cast<const char*>(data), size); }

private:
    std::string& out_;
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

std::string printWithPugixml(const pugi::xml_node& node, bool formatted)
{
    std::string out;
    out.reserve(1024);
    StringSink sink(out);
    node.print(sink, formatted ? "  " : "", formatted ? pugi::format_indent : pugi::format_raw, pugi::encoding_auto, 0);
    return out;
}

using Clock = std::chrono::steady_clock;

void BM_BuildAndPrint(benchmark::State& state)
{
    const bool formatted = state.range(0) != 0;
    const Values& v = values();
    double writerSeconds = 0;
    double pugiSeconds = 0;
    size_t bytes = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        {
            tarn::XmlWriter w;
            w.setFormatted(formatted);
            w.setIndentString("  ");
            buildWithWriter(w, v);
            const std::string out = w.str();
            bytes = out.size();
            benchmark::DoNotOptimize(out.data());
        }
        const auto t1 = Clock::now();
        {
            pugi::xml_document doc;
            buildWithPugixml(doc, v);
            const std::string out = printWithPugixml(doc, formatted);
            benchmark::DoNotOptimize(out.data());
        }
        const auto t2 = Clock::now();
        writerSeconds += std::chrono::duration<double>(t1 - t0).count();
        pugiSeconds += std::chrono::duration<double>(t2 - t1).count();
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["writer_ms"] = writerSeconds / n * 1e3;
    state.counters["pugixml_ms"] = pugiSeconds / n * 1e3;
    state.counters["ratio"] = pugiSeconds / writerSeconds;
    state.counters["out_MB"] = static_cast<double>(bytes) / 1e6;
}
BENCHMARK(BM_BuildAndPrint)->ArgName("formatted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

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
BENCHMARK(BM_WriterBuildOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PugixmlBuildOnly(benchmark::State& state)
{
    const Values& v = values();
    for (auto _ : state) {
        pugi::xml_document doc;
        buildWithPugixml(doc, v);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PugixmlBuildOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

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
BENCHMARK(BM_WriterStr)->ArgName("formatted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PugixmlPrintToString(benchmark::State& state)
{
    const bool formatted = state.range(0) != 0;
    pugi::xml_document doc;
    buildWithPugixml(doc, values());
    size_t bytes = 0;
    for (auto _ : state) {
        const std::string out = printWithPugixml(doc, formatted);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}
BENCHMARK(BM_PugixmlPrintToString)->ArgName("formatted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The plain stream route, for comparison with the string sink.
void BM_PugixmlPrintToStream(benchmark::State& state)
{
    const bool formatted = state.range(0) != 0;
    pugi::xml_document doc;
    buildWithPugixml(doc, values());
    size_t bytes = 0;
    for (auto _ : state) {
        std::ostringstream stream;
        doc.print(stream, formatted ? "  " : "", formatted ? pugi::format_indent : pugi::format_raw, pugi::encoding_auto, 0);
        const std::string out = stream.str();
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}
BENCHMARK(BM_PugixmlPrintToStream)->ArgName("formatted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

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
BENCHMARK(BM_NumericReferencePass)->ArgName("with_reference")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
