// XmlHelper::XmlEncode / XmlDecode against libxml2's xmlEncodeEntitiesReentrant on 10 MB of mixed
// text: mostly ASCII words and punctuation, markup characters, line breaks, some accented Latin
// letters and some CJK. At the end the encoders' speeds are printed side by side with their ratio.
#include "BenchSupport.h"
#include "tarnxml/XmlHelper.h"

#include <benchmark/benchmark.h>
#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

const std::string& mixedText()
{
    static const std::string text = [] {
        static const char* const kAccented[] = {"\xC3\xA9", "\xC3\xA8", "\xC3\xBC", "\xC3\xB6", "\xC3\xA7", "\xC3\x9F"};
        static const char* const kCjk[] = {"\xE4\xB8\xAD", "\xE6\x96\x87", "\xE5\xAD\x97", "\xE6\x97\xA5", "\xE6\x9C\xAC"};
        static const char kMarkup[] = "&<>'\"";
        std::mt19937 rng(12345);
        std::uniform_int_distribution<int> percent(0, 99);
        std::uniform_int_distribution<int> letter(0, 25);
        std::uniform_int_distribution<int> wordLength(1, 10);
        std::string out;
        out.reserve(10 * 1024 * 1024 + 64);
        while (out.size() < 10 * 1024 * 1024) {
            const int kind = percent(rng);
            if (kind < 80) {
                for (int n = wordLength(rng); n > 0; --n)
                    out.push_back(static_cast<char>('a' + letter(rng)));
                out.push_back(' ');
            } else if (kind < 86) {
                out.push_back(kMarkup[percent(rng) % 5]);
            } else if (kind < 92) {
                out += kAccented[percent(rng) % 6];
            } else if (kind < 95) {
                out += kCjk[percent(rng) % 5];
            } else if (kind < 97) {
                out.push_back('\n');
            } else {
                out += ". ";
            }
        }
        return out;
    }();
    return text;
}

void BM_XmlHelperEncode(benchmark::State& state)
{
    const std::string& text = mixedText();
    for (auto _ : state) {
        std::string encoded = XmlHelper::XmlEncode(text);
        benchmark::DoNotOptimize(encoded.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_XmlHelperEncode)->Unit(benchmark::kMillisecond);

void BM_Libxml2EncodeEntitiesReentrant(benchmark::State& state)
{
    const std::string& text = mixedText();
    for (auto _ : state) {
        xmlChar* encoded = xmlEncodeEntitiesReentrant(nullptr, reinterpret_cast<const xmlChar*>(text.c_str()));
        benchmark::DoNotOptimize(encoded);
        xmlFree(encoded);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_Libxml2EncodeEntitiesReentrant)->Unit(benchmark::kMillisecond);

// Decoding reads the encoded form of the same text (every markup and non-ASCII character a
// reference); throughput is counted on the encoded input.
void BM_XmlHelperDecode(benchmark::State& state)
{
    const std::string encoded = XmlHelper::XmlEncode(mixedText());
    for (auto _ : state) {
        std::string decoded = XmlHelper::XmlDecode(encoded);
        benchmark::DoNotOptimize(decoded.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(encoded.size()));
}
BENCHMARK(BM_XmlHelperDecode)->Unit(benchmark::kMillisecond);

// Decoding the raw mixed text: few "&", mostly copying.
void BM_XmlHelperDecodePlain(benchmark::State& state)
{
    const std::string& text = mixedText();
    for (auto _ : state) {
        std::string decoded = XmlHelper::XmlDecode(text);
        benchmark::DoNotOptimize(decoded.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_XmlHelperDecodePlain)->Unit(benchmark::kMillisecond);

// The encoders' throughput and ratio, in wall and CPU time.
void printRatio(const tarnbench::TimesReporter& reporter)
{
    const tarnbench::Times* ours = reporter.find("BM_XmlHelperEncode");
    const tarnbench::Times* theirs = reporter.find("BM_Libxml2EncodeEntitiesReentrant");
    if (ours == nullptr || theirs == nullptr)
        return;
    const double megabytes = static_cast<double>(mixedText().size()) / (1024.0 * 1024.0);
    // Times are in milliseconds per iteration (the benchmarks' unit). CPU time is the steadier
    // figure on a shared machine; wall time is printed as well.
    const char* const kinds[] = {"wall", "cpu"};
    for (int k = 0; k < 2; ++k) {
        const double mine = k == 0 ? ours->real : ours->cpu;
        const double libxml2 = k == 0 ? theirs->real : theirs->cpu;
        if (mine <= 0 || libxml2 <= 0)
            continue;
        std::printf("encode (%s time): XmlHelper::XmlEncode %.1f MB/s, xmlEncodeEntitiesReentrant %.1f MB/s, "
                    "XmlEncode is %.2fx as fast\n",
                    kinds[k], megabytes / (mine / 1000.0), megabytes / (libxml2 / 1000.0), libxml2 / mine);
    }
}

} // namespace

int main(int argc, char** argv)
{
    xmlInitParser();
    return tarnbench::runBenchmarks(argc, argv, printRatio);
}
