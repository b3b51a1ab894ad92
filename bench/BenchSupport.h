#pragma once
// Shared by the benchmark programs: a console reporter that also remembers every benchmark's time
// per iteration, and a main loop that hands those times to the program's own ratio printing at the
// end of the same run (library and raw code compared under the same load).
#include <benchmark/benchmark.h>

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
                medians_.insert(name);
            } else if (run.run_type == Run::RT_Iteration && medians_.count(name) == 0) {
                times_[name] = times;
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

private:
    std::map<std::string, Times> times_;
    std::set<std::string> medians_;
};

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
