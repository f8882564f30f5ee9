// Runs the benchmarks and ends with a table of the promised ratios. Both sides of
// a ratio are measured in the same run; of several repetitions the fastest counts,
// because everything else a machine does can only slow a run down. Of several
// threads, which the wall clock is for, the median counts: they are fastest when they
// happen to take turns on one core. The results come at the end because the order of the runs may
// be shuffled.
#include "benchmarks/targets.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

// A process with one thread only gets cheaper locks and reference counts than any
// real user of this library, so a second thread sleeps beside the benchmarks.
class second_thread {
public:
    ~second_thread() {
        over_.test_and_set();
        over_.notify_one();
    }

private:
    std::atomic_flag over_;
    std::jthread sleeper_{[this] { over_.wait(false); }};
};

class ratio_reporter : public benchmark::ConsoleReporter {
public:
    ratio_reporter() : ConsoleReporter(OO_Tabular) {} // no colours in files

    bool ReportContext(const Context& context) override {
        const bool go_on = ConsoleReporter::ReportContext(context);
        std::fprintf(stderr, "measuring; the results come at the end\n");
        return go_on;
    }

    /// Keeps the median of the repetitions to be shown and remembers what counts.
    void ReportRuns(const std::vector<Run>& runs) override {
        for (Run run : runs) {
            // How often is no part of what.
            run.run_name.repetitions.clear();
            run.run_name.iterations.clear();
            const bool is_median = run.aggregate_name == "median";
            if (is_median || run.error_occurred)
                shown_.push_back(run);
            const bool several_threads = run.threads > 1 || !run.run_name.time_type.empty();
            const bool counts = several_threads ? is_median : run.run_type == Run::RT_Iteration;
            if (counts && !run.error_occurred)
                remember(run);
        }
    }

    /// In the order of their registration, whatever the order of the runs was.
    void Finalize() override {
        std::ranges::sort(shown_, {}, [](const Run& run) {
            return std::pair(run.family_index, run.per_family_instance_index);
        });
        ConsoleReporter::ReportRuns(shown_);
    }

    /// False when one misses its limit or a benchmark found itself wrong.
    bool print_ratios() const {
        bool all_met = std::ranges::none_of(shown_, &Run::error_occurred);
        std::printf("\n%-64s %8s %8s\n", "ratio", "measured", "limit");
        for (const auto& t : zel::benchmarks::targets()) {
            const auto measured = best_.find(t.measured);
            const auto against = t.against.empty() ? measured : best_.find(t.against);
            if (measured == best_.end() || against == best_.end())
                continue;
            const double ratio = measured->second / (t.against.empty() ? 1 : against->second);
            const bool met = ratio <= t.limit;
            std::printf("%-64s %8.2f %8.2f%s\n", t.what.c_str(), ratio, t.limit,
                        met ? "" : "  MISSED");
            all_met = all_met && met;
        }
        return all_met;
    }

private:
    void remember(const Run& run) {
        const std::string name = run.run_name.str();
        const bool wall_clock = !run.run_name.time_type.empty();
        remember(name, wall_clock ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime());
        for (const auto& [counter, value] : run.counters)
            remember(name + ":" + counter, value);
    }

    void remember(const std::string& name, double value) {
        const auto [known, is_new] = best_.emplace(name, value);
        known->second = std::min(known->second, value);
    }

    std::vector<Run> shown_;
    std::map<std::string, double> best_;
};

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> defaults = {"--benchmark_repetitions=5", "--benchmark_min_time=0.05"};
    // The comparison takes turns, so that a slow moment of the machine meets all sides.
    // The rest does not: heaps and thread pools remember what ran before.
    const std::span given(argv + 1, argv + argc);
    if (std::ranges::find(given, std::string_view("--benchmark_filter=peers")) != given.end())
        defaults.push_back("--benchmark_enable_random_interleaving=true");
    // Before the user's own arguments, which win.
    std::vector<char*> arguments(argv, argv + argc);
    for (auto& text : defaults)
        arguments.insert(arguments.begin() + 1, text.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    const second_thread not_alone;
    ratio_reporter reporter;
    if (benchmark::RunSpecifiedBenchmarks(&reporter) == 0) {
        std::fprintf(stderr, "no benchmark matches the filter; --benchmark_list_tests=true\n");
        return 2;
    }
    return reporter.print_ratios() ? 0 : 1;
}
