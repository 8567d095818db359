// bench/ratio_report.h - the one way every benchmark reports a ratio.
//
// A benchmark program registers its library cases beside their baselines
// and hands main over to RunWithRatios with a list of pairs.  The console
// output is Google Benchmark's own; behind it comes one line a pair:
//
//   label: library 1437 MB/s, baseline 1763 MB/s, ratio 0.82x
//
// The ratio is always the library's speed over the baseline's, so above 1
// means faster.  It is taken from bytes per second where both runs set it
// (so cases over different amounts compare fairly), otherwise from the time
// per iteration: wall time for runs measured in real time, CPU time for the
// rest, which a busy machine's preemptions inflate less.
//
// With --benchmark_repetitions the ratio is taken from the medians of the
// repetitions (a busy machine's outliers then move it less); otherwise from
// the one run.
//
// A pair names its runs by the benchmark's full name ("contended/x/real_time/
// threads:2") or by its function name alone ("BM_Md5_Halv").  A pair with a
// run missing (filtered out, or skipped with an error) prints nothing.
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace bench {

struct RatioPair {
    const char *label;
    const char *library;
    const char *baseline;
};

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if ((run.run_type != Run::RT_Iteration && !median) || run.error_occurred || run.iterations == 0)
                continue;
            Figure figure;
            std::string name = run.run_name.str();
            bool wall = name.find("/real_time") != std::string::npos;
            figure.nanos = wall ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
            auto rate = run.counters.find("bytes_per_second");
            if (rate != run.counters.end())
                figure.rate = rate->second.value;
            figure.median = median;
            /* A median stands for its repetitions, whichever came last. */
            for (const std::string &key : {name, run.run_name.function_name}) {
                Figure &slot = figures_[key];
                if (median || !slot.median)
                    slot = figure;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    /* Prints the line of one pair, or nothing when a run is missing. */
    void PrintRatio(const RatioPair &pair) {
        auto ours = figures_.find(pair.library), base = figures_.find(pair.baseline);
        if (ours == figures_.end() || base == figures_.end())
            return;
        const Figure &a = ours->second, &b = base->second;
        char line[320];
        if (a.rate > 0 && b.rate > 0)
            std::snprintf(line, sizeof line, "%s: library %.0f MB/s, baseline %.0f MB/s, ratio %.2fx\n", pair.label,
                          a.rate / 1e6, b.rate / 1e6, a.rate / b.rate);
        else if (a.nanos > 0 && b.nanos > 0)
            std::snprintf(line, sizeof line, "%s: library %.2f ns, baseline %.2f ns, ratio %.2fx\n", pair.label,
                          a.nanos, b.nanos, b.nanos / a.nanos);
        else
            return;
        GetOutputStream() << line;
    }

  private:
    struct Figure {
        double nanos = 0;
        double rate = 0;
        bool median = false;
    };
    std::map<std::string, Figure> figures_;
};

/* Runs the benchmarks the command line selects, then prints the ratio of
 * every pair under the heading.  The result is main's. */
inline int RunWithRatios(int argc, char **argv, std::initializer_list<RatioPair> pairs,
                         const char *heading = "ratios (library speed over baseline speed):") {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.GetOutputStream() << '\n' << heading << '\n';
    for (const RatioPair &pair : pairs)
        reporter.PrintRatio(pair);
    reporter.GetOutputStream().flush();
    benchmark::Shutdown();
    return 0;
}

} // namespace bench
