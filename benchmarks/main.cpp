// Runs the benchmarks and ends with a table of the promised ratios. Both sides of
// a ratio are measured in the same run; of several repetitions the fastest counts,
// because everything else a machine does can only slow a run down.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

struct target {
    const char* what;
    const char* measured; // a time, or "benchmark:counter"
    const char* against;  // null for a limit in the counter's own unit
    double limit;
};

constexpr std::array targets = {
    target{"collect 4 handlers on 4 levels / find of the path in 1 000", //
           "collect/registered:1000", "unordered_map_find/registered:1000", 8.0},
    target{"collect 4 handlers on 4 levels / find of the path in 10 000",
           "collect/registered:10000", "unordered_map_find/registered:10000", 8.0},
    target{"collect 4 handlers on 4 levels / find of the path in 100 000",
           "collect/registered:100000", "unordered_map_find/registered:100000", 8.0},
    target{"collect among 100 000 / among 1 000", //
           "collect/registered:100000", "collect/registered:1000", 1.3},
    target{"shared hold taken and given back / std::mutex pair", //
           "shared_hold/real_time/threads:1", "std_mutex_pair/real_time", 2.5},
    target{"task made, submitted, run and ended / asio::post", //
           "tasks/submitters:1/real_time", "asio_post/submitters:1/real_time", 2.0},
    target{"the same number of tasks from two threads / from one", //
           "tasks/submitters:2/real_time", "tasks/submitters:1/real_time", 1.0},
    target{"task in a queue with one runner / asio::strand", //
           "queued_tasks/real_time", "asio_strand/real_time", 1 / 0.7},
    target{"1 000 000 pending tasks ended / 100 000", //
           "pending_tasks_end/tasks:1000000/iterations:1/real_time",
           "pending_tasks_end/tasks:100000/iterations:1/real_time", 12.0},
    target{"bytes of a pending task", //
           "pending_task_memory/iterations:1/real_time:bytes", nullptr, 768.0},
};

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

    /// Shows the median of the repetitions and remembers the fastest.
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> shown;
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                remember(run);
            if (run.aggregate_name == "median" || run.error_occurred)
                shown.push_back(run);
        }
        if (!shown.empty())
            ConsoleReporter::ReportRuns(shown);
    }

    /// False when one misses its limit.
    bool print_ratios() const {
        bool all_met = true;
        std::printf("\n%-64s %8s %8s\n", "ratio", "measured", "limit");
        for (const target& t : targets) {
            const auto measured = fastest_.find(t.measured);
            const auto against = t.against ? fastest_.find(t.against) : measured;
            if (measured == fastest_.end() || against == fastest_.end())
                continue;
            const double ratio = measured->second / (t.against ? against->second : 1);
            const bool met = ratio <= t.limit;
            std::printf("%-64s %8.2f %8.2f%s\n", t.what, ratio, t.limit, met ? "" : "  MISSED");
            all_met = all_met && met;
        }
        return all_met;
    }

private:
    void remember(const Run& run) {
        auto name = run.run_name;
        name.repetitions.clear();
        const bool wall_clock = !name.time_type.empty();
        const double time = wall_clock ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
        remember(name.str(), time);
        for (const auto& [counter, value] : run.counters)
            remember(name.str() + ":" + counter, value);
    }

    void remember(const std::string& name, double value) {
        const auto [known, is_new] = fastest_.emplace(name, value);
        known->second = std::min(known->second, value);
    }

    std::map<std::string, double> fastest_;
};

} // namespace

int main(int argc, char** argv) {
    // Before the user's own arguments, which win.
    std::vector<char*> arguments(argv, argv + argc);
    std::array<std::string, 2> defaults = {"--benchmark_repetitions=5",
                                           "--benchmark_min_time=0.05"};
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
