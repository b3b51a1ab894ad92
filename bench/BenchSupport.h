#pragma once
// Shared by the benchmark programs: a console reporter that also remembers every benchmark's time
// per iteration, and a main loop that hands those times to the program's own ratio printing at the
// end of the same run (library and raw code compared under the same load).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace tarnbench {

// A large real-world document that Debian systems carry (shared-mime-info); benchmarks that use
// it skip it when it is missing.
inline const char* const kFreedesktopXml = "/usr/share/mime/packages/freedesktop.org.xml";

// The file's bytes, or "" when it cannot be read.
inline std::string readFile(const char* path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::string();
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// Time per iteration in the benchmark's unit. CPU time is the figure to compare on a shared
// machine (wall time mostly measures the neighbours); real time is kept for the record.
struct Times {
    double cpu = 0;
    double real = 0;
};

// Prints as usual and keeps each benchmark's times under its run name (arguments included,
// aggregate suffix not): the median of the repetitions when run with repetitions, else the
// last run.
class TimesReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            const std::string name = run.run_name.str();
            const Times times{run.GetAdjustedCPUTime(), run.GetAdjustedRealTime()};
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                times_[name] = times;
                counters_[name] = run.counters;
                medians_.insert(name);
            } else if (run.run_type == Run::RT_Iteration && medians_.count(name) == 0) {
                times_[name] = times;
                counters_[name] = run.counters;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    const std::map<std::string, Times>& all() const { return times_; }

    // Null when that benchmark did not run (filtered out, or it failed).
    const Times* find(const std::string& name) const
    {
        const auto found = times_.find(name);
        return found == times_.end() ? nullptr : &found->second;
    }

    // A counter of that benchmark (the median of the repetitions when repeated), or `fallback`.
    double counter(const std::string& name, const std::string& counterName, double fallback = 0) const
    {
        const auto found = counters_.find(name);
        if (found == counters_.end())
            return fallback;
        const auto value = found->second.find(counterName);
        return value == found->second.end() ? fallback : static_cast<double>(value->second);
    }

private:
    std::map<std::string, Times> times_;
    std::map<std::string, benchmark::UserCounters> counters_;
    std::set<std::string> medians_;
};

// CPU time of the calling thread in nanoseconds: on a shared machine the other processes' turns
// do not count.
inline double threadCpuNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The same in seconds.
inline double threadCpuSeconds() { return threadCpuNs() * 1e-9; }

// Library and raw code measured side by side: every iteration runs `batch` library calls, then
// `batch` raw calls, each batch timed on the thread's CPU clock, so load from other processes hits
// both alike. Counters: lib_ns and raw_ns per call (divided by `unitsPerCall`, e.g. the steps of
// one walk), and raw/lib (1.0 = as fast as raw, above 1 faster).
template <typename Library, typename Raw>
void paired(benchmark::State& state, int batch, Library library, Raw raw, double unitsPerCall = 1)
{
    double libraryNs = 0;
    double rawNs = 0;
    double calls = 0;
    bool libraryFirst = true;
    for (auto _ : state) {
        // Alternate the order so that neither side always runs on the other's warm caches.
        for (int side = 0; side < 2; ++side) {
            const bool libraryTurn = (side == 0) == libraryFirst;
            const double start = threadCpuNs();
            for (int i = 0; i < batch; ++i) {
                if (libraryTurn)
                    library();
                else
                    raw();
            }
            (libraryTurn ? libraryNs : rawNs) += threadCpuNs() - start;
        }
        libraryFirst = !libraryFirst;
        calls += batch;
    }
    state.counters["lib_ns"] = libraryNs / calls / unitsPerCall;
    state.counters["raw_ns"] = rawNs / calls / unitsPerCall;
    state.counters["raw/lib"] = libraryNs > 0 ? rawNs / libraryNs : 0;
}

// One row of the summary that `make bench` prints at the end: appended to the file named by the
// environment variable TARNXML_BENCH_SUMMARY (nothing happens when it is not set). `now` is the
// measured figure, `goal` what it should reach, `detail` the raw numbers behind it.
inline void summary(const std::string& path, const std::string& now, const std::string& goal,
                    const std::string& detail)
{
    const char* file = std::getenv("TARNXML_BENCH_SUMMARY");
    if (file == nullptr || *file == '\0')
        return;
    if (std::FILE* out = std::fopen(file, "a")) {
        std::fprintf(out, "%s\t%s\t%s\t%s\n", path.c_str(), now.c_str(), goal.c_str(), detail.c_str());
        std::fclose(out);
    }
}

// A ratio as the summary prints it ("0.93").
inline std::string ratioText(double ratio)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", ratio);
    return text;
}

// A duration given in nanoseconds, in a readable unit ("36.5 ns", "1.22 ms").
inline std::string timeText(double ns)
{
    char text[32];
    if (ns < 1e3)
        std::snprintf(text, sizeof text, "%.1f ns", ns);
    else if (ns < 1e6)
        std::snprintf(text, sizeof text, "%.1f us", ns / 1e3);
    else if (ns < 1e9)
        std::snprintf(text, sizeof text, "%.1f ms", ns / 1e6);
    else
        std::snprintf(text, sizeof text, "%.2f s", ns / 1e9);
    return text;
}

// Reports a benchmark measured with paired(): prints its raw/library ratio and appends its row
// to the summary. `run` is the benchmark's run name ("Name/repeats:5"), `path` the row's name,
// `per` what one unit is ("step", "element"; the detail reads "12.0 ns vs 10.0 ns raw per step").
inline void pairedRow(const TimesReporter& reporter, const std::string& run, const std::string& path,
                      const std::string& goal, const std::string& per = std::string())
{
    const double ratio = reporter.counter(run, "raw/lib");
    if (ratio <= 0)
        return;
    const std::string detail = timeText(reporter.counter(run, "lib_ns")) + " vs " +
                               timeText(reporter.counter(run, "raw_ns")) + " raw" +
                               (per.empty() ? std::string() : " per " + per);
    std::printf("%s: raw/library %.3f (%s)\n", path.c_str(), ratio, detail.c_str());
    summary(path, ratioText(ratio), goal, detail);
}

// Runs the benchmarks the command line selects, then `report(reporter)`; the exit status.
template <typename Report>
int runBenchmarks(int argc, char** argv, Report report)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    TimesReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    report(static_cast<const TimesReporter&>(reporter));
    benchmark::Shutdown();
    return 0;
}

} // namespace tarnbench
