// Conversion of 20 MB of Latin-1 XML to UTF-8: XmlHelper::toUTF8 next to libxml2's own ISO-8859-1
// converter called directly on the whole buffer (the floor: no detection, no declaration rewrite,
// no error bookkeeping), and next to `xmllint --encode UTF-8` on the same text as a file (a
// separate process that also parses and prints the document; wall time, its output discarded).
// The same text declared windows-1252 shows the iconv path. At the end the ratios are printed.
#include "BenchSupport.h"
#include "tarnxml/XmlHelper.h"

#include <benchmark/benchmark.h>
#include <libxml/encoding.h>
#include <libxml/parser.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <unistd.h>

namespace {

constexpr std::size_t kTargetSize = 20u << 20;

// An address book in German and French: mostly ASCII markup, an accented letter every few words.
std::string makeLatin1(const char* encoding)
{
    std::mt19937 rng(7);
    static const char* const names[] = {"M\xFCller", "Gr\xF6\xDF" "e", "Fran\xE7ois", "Ren\xE9" "e", "Z\xFCrich",
                                        "Bj\xF6rk",  "S\xE3o",       "Ma\xEFt\xE9", "Schmidt", "Dupont"};
    std::string out = std::string("<?xml version=\"1.0\" encoding=\"") + encoding + "\"?>\n<book>\n";
    for (unsigned id = 0; out.size() < kTargetSize; ++id) {
        out += "  <entry id=\"" + std::to_string(id) + "\">\n";
        out += "    <name>" + std::string(names[rng() % 10]) + " " + names[rng() % 10] + "</name>\n";
        out += "    <city>" + std::string(names[rng() % 10]) + "</city>\n";
        out += "    <note>Pr\xE9" "f\xE8re le caf\xE9 \xE0 " + std::to_string(rng() % 24) + " h</note>\n";
        out += "  </entry>\n";
    }
    return out + "</book>\n";
}

const std::string& latin1Text()
{
    static const std::string text = makeLatin1("ISO-8859-1");
    return text;
}

void setBytes(benchmark::State& state, std::size_t size)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(size));
}

void BM_ToUtf8Latin1(benchmark::State& state)
{
    const std::string& text = latin1Text();
    std::string out;
    for (auto _ : state) {
        const XmlHelper::EncodingResult result = XmlHelper::toUTF8(text, out);
        if (!result.ok)
            state.SkipWithError(result.error.c_str());
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, text.size());
}
BENCHMARK(BM_ToUtf8Latin1)->Unit(benchmark::kMillisecond);

void BM_Libxml2Latin1Converter(benchmark::State& state)
{
    const std::string& text = latin1Text();
    xmlCharEncodingHandler* handler = xmlFindCharEncodingHandler("ISO-8859-1");
    if (handler == nullptr || handler->input == nullptr) {
        state.SkipWithError("no built-in ISO-8859-1 converter");
        return;
    }
    std::string out(text.size() * 2, '\0');
    for (auto _ : state) {
        int inLength = static_cast<int>(text.size());
        int outLength = static_cast<int>(out.size());
        handler->input(reinterpret_cast<unsigned char*>(&out[0]), &outLength,
                       reinterpret_cast<const unsigned char*>(text.data()), &inLength);
        benchmark::DoNotOptimize(out.data());
        benchmark::DoNotOptimize(outLength);
    }
    xmlCharEncCloseFunc(handler);
    setBytes(state, text.size());
}
BENCHMARK(BM_Libxml2Latin1Converter)->Unit(benchmark::kMillisecond);

void BM_ToUtf8Windows1252(benchmark::State& state)
{
    static const std::string text = makeLatin1("windows-1252");
    std::string out;
    for (auto _ : state) {
        const XmlHelper::EncodingResult result = XmlHelper::toUTF8(text, out);
        if (!result.ok)
            state.SkipWithError(result.error.c_str());
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, text.size());
}
BENCHMARK(BM_ToUtf8Windows1252)->Unit(benchmark::kMillisecond);

// xmllint in a shell, output to /dev/null. Wall time: the work happens in the child.
void BM_XmllintEncode(benchmark::State& state)
{
    char path[] = "/tmp/tarnxml-bench-latin1-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) {
        state.SkipWithError("cannot create a temporary file");
        return;
    }
    const std::string& text = latin1Text();
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    const std::string command = std::string("xmllint --encode UTF-8 ") + path + " > /dev/null";
    if (!written || std::system(command.c_str()) != 0) {
        state.SkipWithError("xmllint did not run");
    } else {
        for (auto _ : state)
            benchmark::DoNotOptimize(std::system(command.c_str()));
        setBytes(state, text.size());
    }
    unlink(path);
}
BENCHMARK(BM_XmllintEncode)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

void printRatios(const tarnbench::TimesReporter& reporter)
{
    const tarnbench::Times* ours = reporter.find("BM_ToUtf8Latin1");
    const tarnbench::Times* raw = reporter.find("BM_Libxml2Latin1Converter");
    const tarnbench::Times* iconvPath = reporter.find("BM_ToUtf8Windows1252");
    const tarnbench::Times* xmllint = reporter.find("BM_XmllintEncode/iterations:5/real_time");
    if (ours == nullptr || ours->cpu <= 0)
        return;
    const double megabytes = static_cast<double>(latin1Text().size()) / (1024.0 * 1024.0);
    std::printf("toUTF8 ISO-8859-1: %.0f MB/s (cpu)\n", megabytes / (ours->cpu / 1000.0));
    if (raw != nullptr && raw->cpu > 0)
        std::printf("libxml2 ISO-8859-1 converter alone: %.0f MB/s (cpu), toUTF8/raw speed ratio = %.2f\n",
                    megabytes / (raw->cpu / 1000.0), raw->cpu / ours->cpu);
    if (iconvPath != nullptr && iconvPath->cpu > 0)
        std::printf("toUTF8 windows-1252 (iconv): %.0f MB/s (cpu)\n", megabytes / (iconvPath->cpu / 1000.0));
    if (xmllint != nullptr && xmllint->real > 0)
        std::printf("xmllint --encode UTF-8: %.0f MB/s (wall, whole process), toUTF8 is %.1fx as fast (wall)\n",
                    megabytes / (xmllint->real / 1000.0), xmllint->real / ours->real);
}

} // namespace

int main(int argc, char** argv)
{
    xmlInitParser();
    return tarnbench::runBenchmarks(argc, argv, printRatios);
}
