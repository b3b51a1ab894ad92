// Throughput of the UTF-8 gate next to memcpy of the same buffer, in the same run. For each input
// the summary at the end prints one line per validator, e.g. "ascii-xml  avx2  isValidUTF8/memcpy =
// 0.47": the validator's bytes per second divided by memcpy's.
//
// Inputs: a generated mostly-ASCII XML document, the shared MIME database (when present; an XML
// file with translations in many scripts), and generated mostly-CJK text.
#include "BenchSupport.h"
#include "Utf8Validate.h"
#include "tarnxml/XmlHelper.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using tarn::detail::Utf8Path;

constexpr std::size_t kTargetSize = 8u << 20;

void appendCodePoint(std::string& out, std::uint32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Records of a product inventory: elements, attributes, indentation, numbers, and now and then a
// name with an accented letter or a currency sign.
std::string makeAsciiXml()
{
    std::mt19937 rng(1);
    static const char* const names[] = {"Zürich office", "Main store", "Müller & Söhne", "Depot 7",
                                        "Café Central", "Warehouse North", "Price in €"};
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<inventory>\n";
    for (unsigned id = 0; out.size() < kTargetSize; ++id) {
        out += "  <item id=\"" + std::to_string(id) + "\" kind=\"part\">\n";
        out += "    <name>Part number " + std::to_string(rng() % 100000) + "</name>\n";
        out += "    <site>" + std::string(names[rng() % 7]) + "</site>\n";
        out += "    <stock unit=\"pcs\">" + std::to_string(rng() % 5000) + "</stock>\n";
        out += "\t\t<note>Checked by the night shift; reorder when below the threshold.</note>\r\n";
        out += "  </item>\n";
    }
    return out + "</inventory>\n";
}

// Chinese-like prose: ideographs with a full stop or comma every few characters, line breaks and
// now and then an ASCII number.
std::string makeCjkText()
{
    std::mt19937 rng(2);
    std::string out;
    while (out.size() < kTargetSize) {
        const unsigned r = rng() % 100;
        if (r < 88)
            appendCodePoint(out, 0x4E00 + rng() % 0x51A0);
        else if (r < 94)
            appendCodePoint(out, r & 1 ? 0x3002 : 0xFF0C);
        else if (r < 97)
            out += std::to_string(rng() % 1000);
        else
            out += '\n';
    }
    return out;
}

// Element and attribute names and values as callers pass them one at a time: mostly under 16
// bytes, where the cost of each call matters more than the speed per byte.
std::vector<std::string> makeShortTexts()
{
    std::mt19937 rng(3);
    static const char* const words[] = {"id", "name", "kind", "item", "Zürich", "stock", "unit",
                                        "pcs", "true", "false", "€", "Part number", "日本"};
    std::vector<std::string> out;
    for (int k = 0; k < 10000; ++k) {
        std::string text = words[rng() % 13];
        if (rng() % 2)
            text += std::to_string(rng() % 100000);
        out.push_back(text);
    }
    return out;
}

struct Input {
    std::string name;
    std::string text;
};

std::vector<Input>& inputs()
{
    static std::vector<Input> all;
    return all;
}

void benchMemcpy(benchmark::State& state, const std::string* text)
{
    std::vector<char> target(text->size());
    for (auto _ : state) {
        std::memcpy(target.data(), text->data(), text->size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text->size()));
}

void benchPath(benchmark::State& state, const std::string* text, Utf8Path path)
{
    if (!tarn::detail::utf8PathSupported(path)) {
        state.SkipWithError("not supported on this CPU");
        return;
    }
    const auto* data = reinterpret_cast<const unsigned char*>(text->data());
    bool valid = true;
    for (auto _ : state) {
        valid = tarn::detail::utf8ValidWith(path, data, text->size());
        benchmark::DoNotOptimize(valid);
    }
    if (!valid)
        state.SkipWithError("input is not valid");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text->size()));
}

void benchShortMemcpy(benchmark::State& state, const std::vector<std::string>* texts)
{
    char target[64];
    std::size_t bytes = 0;
    for (const std::string& text : *texts)
        bytes += text.size();
    for (auto _ : state) {
        for (const std::string& text : *texts) {
            std::memcpy(target, text.data(), text.size());
            benchmark::DoNotOptimize(target);
            benchmark::ClobberMemory();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

// Path -1: the public entry point.
void benchShortPath(benchmark::State& state, const std::vector<std::string>* texts, int path)
{
    if (path >= 0 && !tarn::detail::utf8PathSupported(static_cast<Utf8Path>(path))) {
        state.SkipWithError("not supported on this CPU");
        return;
    }
    std::size_t bytes = 0;
    for (const std::string& text : *texts)
        bytes += text.size();
    for (auto _ : state) {
        for (const std::string& text : *texts) {
            const bool valid = path < 0 ? XmlHelper::isValidUTF8(text)
                                        : tarn::detail::utf8ValidWith(
                                              static_cast<Utf8Path>(path),
                                              reinterpret_cast<const unsigned char*>(text.data()),
                                              text.size());
            benchmark::DoNotOptimize(valid);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

// The public entry point, as callers see it (dispatch included).
void benchIsValid(benchmark::State& state, const std::string* text)
{
    bool valid = true;
    for (auto _ : state) {
        valid = XmlHelper::isValidUTF8(*text);
        benchmark::DoNotOptimize(valid);
    }
    if (!valid)
        state.SkipWithError("input is not valid");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text->size()));
}

// isValidUTF8 time against memcpy of the same input, per input and path (CPU time).
void printRatios(const tarnbench::TimesReporter& reporter)
{
    std::printf("\n%-12s %-12s %s\n", "input", "validator", "isValidUTF8/memcpy");
    std::vector<std::string> names;
    for (const Input& input : inputs())
        names.push_back(input.name);
    names.push_back("short");
    for (const std::string& name : names) {
        const tarnbench::Times* copy = reporter.find("utf8/" + name + "/memcpy");
        if (copy == nullptr)
            continue;
        for (const char* who : {"scalar", "sse2", "ssse3", "avx2", "dispatched"}) {
            const tarnbench::Times* found = reporter.find("utf8/" + name + "/" + who);
            if (found != nullptr)
                std::printf("%-12s %-12s isValidUTF8/memcpy = %.3f\n", name.c_str(), who, copy->cpu / found->cpu);
        }
    }
    std::printf("(dispatched path: %s)\n", tarn::detail::utf8PathName(tarn::detail::utf8BestPath()));
}

} // namespace

int main(int argc, char** argv)
{
    inputs().push_back({"ascii-xml", makeAsciiXml()});
    std::string mime = tarnbench::readFile(tarnbench::kFreedesktopXml);
    if (!mime.empty())
        inputs().push_back({"mime-xml", std::move(mime)});
    inputs().push_back({"cjk", makeCjkText()});

    for (const Input& input : inputs()) {
        const std::string prefix = "utf8/" + input.name + "/";
        benchmark::RegisterBenchmark((prefix + "memcpy").c_str(), benchMemcpy, &input.text);
        for (Utf8Path path : tarn::detail::kUtf8Paths)
            benchmark::RegisterBenchmark((prefix + tarn::detail::utf8PathName(path)).c_str(),
                                         benchPath, &input.text, path);
        benchmark::RegisterBenchmark((prefix + "dispatched").c_str(), benchIsValid, &input.text);
    }

    static const std::vector<std::string> shortTexts = makeShortTexts();
    benchmark::RegisterBenchmark("utf8/short/memcpy", benchShortMemcpy, &shortTexts);
    for (Utf8Path path : tarn::detail::kUtf8Paths)
        benchmark::RegisterBenchmark((std::string("utf8/short/") + tarn::detail::utf8PathName(path)).c_str(),
                                     benchShortPath, &shortTexts, static_cast<int>(path));
    benchmark::RegisterBenchmark("utf8/short/dispatched", benchShortPath, &shortTexts, -1);

    return tarnbench::runBenchmarks(argc, argv, printRatios);
}
