// Tasks against what Asio alone would do with the same captures.
#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_container.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_queue.h"

#include <platform/event.h>

#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <benchmark/benchmark.h>
#include <latch>
#include <malloc.h>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace zel::tasklib;

// What an asynchronous handler part carries.
struct captures {
    std::shared_ptr<int> payload = std::make_shared<int>(1);
    std::string path = "document.page.paragraph.edited"; // 30 characters
    std::map<std::string, std::string> parameters;
};

constexpr std::int64_t tasks_in_a_round = 20'000;

// Has `count` pieces of work submitted by some threads at once.
template <class Submit>
void from_threads(std::int64_t submitters, std::int64_t count, const Submit& submit) {
    const auto share = [&] {
        for (std::int64_t i = 0; i < count / submitters; ++i)
            submit();
    };
    std::vector<std::jthread> others;
    for (std::int64_t i = 1; i < submitters; ++i)
        others.emplace_back(share);
    share();
}

void asio_post(benchmark::State& state) {
    asio::thread_pool pool(std::thread::hardware_concurrency());
    const captures captured;
    for (auto _ : state) {
        std::latch ended(tasks_in_a_round);
        from_threads(state.range(0), tasks_in_a_round,
                     [&] { asio::post(pool, [captured, &ended] { ended.count_down(); }); });
        ended.wait();
    }
    state.SetItemsProcessed(state.iterations() * tasks_in_a_round);
}

void tasks(benchmark::State& state) {
    const auto processor = get_task_processor();
    const captures captured;
    for (auto _ : state) {
        const auto container = std::make_shared<low_level_task_container>("");
        from_threads(state.range(0), tasks_in_a_round, [&] {
            submit_or_cancel(make_task("handling of a", container, [captured] {}).share(),
                             *processor);
        });
        container->wait({}, 0);
    }
    state.SetItemsProcessed(state.iterations() * tasks_in_a_round);
}

void asio_strand(benchmark::State& state) {
    asio::thread_pool pool(std::thread::hardware_concurrency());
    auto strand = asio::make_strand(pool);
    const captures captured;
    for (auto _ : state) {
        std::latch ended(tasks_in_a_round);
        for (std::int64_t i = 0; i < tasks_in_a_round; ++i)
            asio::post(strand, [captured, &ended] { ended.count_down(); });
        ended.wait();
    }
    state.SetItemsProcessed(state.iterations() * tasks_in_a_round);
}

void queued_tasks(benchmark::State& state) {
    const auto processor = get_task_processor();
    const auto queue = std::make_shared<task_queue>(1);
    const captures captured;
    for (auto _ : state) {
        const auto container = std::make_shared<task_container>("");
        const auto low_level = container->get_low_level_container();
        for (std::int64_t i = 0; i < tasks_in_a_round; ++i)
            store_or_cancel(make_task("handling of a", low_level, [captured] {}).share(), queue,
                            container, processor);
        low_level->wait({}, 0);
    }
    state.SetItemsProcessed(state.iterations() * tasks_in_a_round);
}

// What a task costs whose maker waits for it: it goes to another thread and its end comes back.
void submit_and_wait(benchmark::State& state) {
    const auto processor = get_task_processor();
    const captures captured;
    for (auto _ : state) {
        const auto made = make_task("handling of a", nullptr, [captured] {});
        submit_or_cancel(made.share(), *processor);
        made.wait();
    }
}

void two_thread_switches(benchmark::State& state) {
    using enum zel::platform::reset_mode;
    zel::platform::event there{automatic, false}, back{automatic, false};
    std::atomic<bool> ends{false};
    std::jthread other([&] {
        for (there.wait(); !ends; there.wait())
            back.set();
    });
    for (auto _ : state) {
        there.set();
        back.wait();
    }
    ends = true;
    there.set();
}

// Few enough to be pending all at once before the library adds a thread for the
// blocked ones.
void pending_task_memory(benchmark::State& state) {
    const auto processor = get_task_processor();
    double bytes = 0;
    for (auto _ : state) {
        const auto container = std::make_shared<low_level_task_container>("");
        std::latch blocked(std::thread::hardware_concurrency());
        std::latch go_on(1);
        for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i)
            processor->submit(make_task("blocks", container,
                                        [&] {
                                            blocked.count_down();
                                            go_on.wait();
                                        })
                                  .share(),
                              0);
        blocked.wait();
        const auto before = mallinfo2().uordblks;
        for (std::int64_t i = 0; i < tasks_in_a_round; ++i)
            submit_or_cancel(
                make_task("handling of a", container, [captured = captures()] {}).share(),
                *processor);
        bytes = static_cast<double>(mallinfo2().uordblks - before) / tasks_in_a_round;
        go_on.count_down();
        container->wait({}, 0);
    }
    state.counters["bytes"] = bytes;
}

// Held, ended and waited for, without ever having started.
void pending_tasks_end(benchmark::State& state) {
    const auto processor = get_task_processor();
    const auto scheduler = get_task_scheduler();
    using never = basic_single_run_sch_params<unbiased_clock>;
    const auto parameters = std::make_shared<never>(unbiased_clock::time_point::max());
    const captures captured;
    for (auto _ : state) {
        task_container container("");
        const auto low_level = container.get_low_level_container();
        for (std::int64_t i = 0; i < state.range(0); ++i)
            scheduler->schedule(make_task("handling of a", low_level, [captured] {}).share(),
                                processor, parameters, 0);
        container.end_and_wait({});
    }
}

// A part that makes one more task while so many of its own are still to run.
void child_task(benchmark::State& state) {
    const auto processor = get_task_processor();
    const auto part = make_task("part", nullptr, [&] {
        std::vector<task<void>> outstanding;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            outstanding.push_back(make_task("child", nullptr, [] {}));
        for (auto _ : state)
            benchmark::DoNotOptimize(make_task("child", nullptr, [] {}));
    });
    processor->execute(part.share(), true);
}

} // namespace

BENCHMARK(asio_post)
    ->ArgName("submitters")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(tasks)
    ->ArgName("submitters")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(asio_strand)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(queued_tasks)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(submit_and_wait)->UseRealTime();
BENCHMARK(two_thread_switches)->UseRealTime();
BENCHMARK(pending_task_memory)->Iterations(1)->UseRealTime();
BENCHMARK(pending_tasks_end)
    ->ArgName("tasks")
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(child_task)->ArgName("outstanding")->Arg(0)->Arg(1'000)->Arg(32'000);
