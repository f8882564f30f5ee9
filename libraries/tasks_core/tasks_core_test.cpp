#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_queue.h"
#include "libraries/tasks_core/ended_state_impl.h"
#include "libraries/tasks_core/running_task.h"
#include "libraries/tasks_core/task_processor_impl.h"
#include "libraries/tasks_core/task_scheduler_impl.h"
#include "libraries/tasks_core/tasks_core_module_impl.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/scarce_memory.h"

#include <gtest/gtest.h>
#include <latch>
#include <semaphore>

namespace {

using namespace zel::tasklib;
using namespace std::chrono_literals;
using zel::platform::clock;
using zel::platform::clock_replacement;
using zel::platform::signal;

constexpr zel::platform::milliseconds hours{10'000'000}; // do not pass in a test
constexpr task_thread_limits one_thread{
    .cores = 1, .most_threads = 1, .stalled = hours, .idle = hours};

constexpr zel::threading::universal_timeout patience{false, 20'000'000};

using parameters = std::shared_ptr<scheduling_parameters_ifc>;
using moment = unbiased_clock::time_point;
using ticks = unbiased_clock::duration;

parameters at(moment when) {
    return std::make_shared<basic_single_run_sch_params<unbiased_clock>>(when);
}

struct delay final : scheduling_parameters_ifc {
    explicit delay(std::int64_t microseconds) : left{false, microseconds} {}
    zel::threading::universal_timeout time_left() const override { return left; }
    const zel::threading::universal_timeout left;
};

struct pool {
    // Without it nobody comes to a task that was forgotten.
    enum watch { with_watch, without_watch };
    explicit pool(const task_thread_limits& limits, watch has_one = with_watch)
        : threads(std::make_shared<task_threads>(limits)) {
        if (has_one == with_watch)
            threads->start_timer_thread();
    }
    ~pool() {
        for (const auto& task : scheduler->stop_taking())
            task->cancellation().cancel();
        threads->stop_taking();
        while (const auto task = threads->take_rest())
            task->cancellation().cancel();
        threads->join();
    }
    void set_limits(const task_thread_limits& limits) {
        threads->set_limits(limits);
        threads->follow_limits();
    }
    task<void> submit(auto body) {
        auto made = make_task("", nullptr, std::move(body));
        processor->submit(made.share(), 0);
        return made;
    }
    void schedule(const task<void>& t, const parameters& when) {
        scheduler->schedule(t.share(), processor, when, 0);
    }

    std::shared_ptr<task_threads> threads;
    std::shared_ptr<task_processor_impl> processor = std::make_shared<task_processor_impl>(threads);
    std::shared_ptr<task_scheduler_impl> scheduler = std::make_shared<task_scheduler_impl>(threads);
};

TEST(TaskThreads, LetTheLastOfManyTasksReleaseAllThatBlockBeforeIt) {
    pool p({.stalled = 1ms});
    signal opened;
    std::vector<task<void>> tasks;
    for (int i = 0; i < 200; ++i)
        tasks.push_back(p.submit([&] { opened.wait(); }));
    p.submit([&] { opened.set(); });
    for (const auto& t : tasks)
        EXPECT_TRUE(t.wait());
}

TEST(TaskThreads, TakeOverAtOnceFromATaskThatWaitsThroughTheLibrary) {
    signal ended;
    ended_state_impl state;
    pool p({.cores = 1, .stalled = hours}); // goes first, since its tasks wait for both
    for (int i = 0; i < 20; ++i) {
        p.submit([&] { state.wait_ended({}); });
        p.submit([&, event = static_cast<zel::platform::event*>(&ended)] {
            auto* const source = query<companion_source_ifc>(*this_task_cancellation());
            const auto companion = source->get_companion({});
            EXPECT_EQ(query<cancellable_wait_ifc>(*companion)->wait(&event, 1, hours), 0);
        });
    }
    EXPECT_TRUE(p.submit([] {}).wait());
    ended.set();
    state.set_ended();
}

TEST(TaskThreads, SoonRunWhatComesBehindALongTaskAmongShortOnes) {
    pool p({.cores = 2, .most_threads = 2, .stalled = hours});
    for (int i = 0; i < 200; ++i) // now the next ones are expected to be short, too
        p.submit([] {}).wait();
    signal began, overtaken;
    const auto long_one = p.submit([&] {
        began.set();
        overtaken.wait();
    });
    began.wait();
    p.submit([&] { overtaken.set(); });
    EXPECT_TRUE(long_one.wait());
}

TEST(TaskThreads, TakeOverOnceFromATaskThatAnnouncesThatItWaits) {
    pool p({.cores = 1, .stalled = hours});
    signal waits, others_wait, ended;
    p.submit([&] {
        const zel::platform::announced_wait outer;
        const zel::platform::announced_wait inner; // of something that is called
        waits.set();
        ended.wait();
    });
    waits.wait();
    p.submit([&] {
        others_wait.set();
        ended.wait();
    });
    EXPECT_TRUE(others_wait.comes());
    const auto last = p.submit([] {});
    EXPECT_EQ(p.threads->thread_count(), 2u);
    ended.set();
    EXPECT_TRUE(last.wait());
}

TEST(TaskThreads, RunATaskOrRefuseItWhereMemoryIsShort) {
    for (const auto kind : {zel::test::shortage::passing, zel::test::shortage::lasting}) {
        pool p(one_thread);
        task<void> accepted;
        bool all_ran = true; // an expectation that fails takes memory
        const auto submit = [&] {
            if (accepted)
                all_ran = std::exchange(accepted, {}).wait(patience) && all_ran;
            accepted = p.submit([] {});
        };
        EXPECT_GT(zel::test::failures_of(submit, kind), 1);
        EXPECT_TRUE(accepted.wait(patience) && all_ran);
    }
}

std::counting_semaphore threads_gone(0);
struct thread_end {
    ~thread_end() { threads_gone.release(); }
};
void forget_threads_of_other_pools() {
    while (threads_gone.try_acquire()) {
    }
}

TEST(TaskThreads, GrowByOneWithEveryStallUpToTheMostAndShrinkWhenIdle) {
    forget_threads_of_other_pools();
    pool p({.cores = 1, .most_threads = 3, .stalled = 30ms, .idle = 60ms});
    std::counting_semaphore started(0);
    signal go_on;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 4; ++i)
        p.submit([&] {
            [[maybe_unused]] thread_local const thread_end noticed;
            started.release();
            go_on.wait();
        });
    for (int i = 0; i < 3; ++i)
        started.acquire();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 60ms);
    EXPECT_FALSE(started.try_acquire_for(100ms)) << "more threads than the most";
    go_on.set();
    for (int i = 0; i < 2; ++i)
        threads_gone.acquire();
    EXPECT_EQ(p.threads->thread_count(), 1u);
    EXPECT_TRUE(p.submit([] {}).wait()) << "the one that stays works";
}

TEST(TaskThreads, FollowNewLimitsAtOnce) {
    forget_threads_of_other_pools();
    const task_thread_limits few{.cores = 1, .most_threads = 8, .stalled = hours, .idle = 60ms};
    pool p(few);
    std::counting_semaphore started(0);
    signal go_on;
    for (int i = 0; i < 4; ++i)
        p.submit([&] {
            [[maybe_unused]] thread_local const thread_end noticed;
            started.release();
            go_on.wait();
        });
    started.acquire();
    EXPECT_EQ(p.threads->thread_count(), 1u);
    auto more = few;
    more.cores = 3;
    p.set_limits(more);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(started.try_acquire_for(zel::platform::patience));
    EXPECT_EQ(p.threads->thread_count(), 3u);
    more.stalled = 1ms;
    p.set_limits(more);
    EXPECT_TRUE(started.try_acquire_for(zel::platform::patience));
    p.set_limits(few);
    go_on.set();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(threads_gone.try_acquire_for(zel::platform::patience));
    EXPECT_EQ(p.threads->thread_count(), 1u);
}

TEST(TaskThreads, ReplaceAThreadThatATaskEndsAndForgetNothingOfItsRow) {
    pool p(one_thread, pool::without_watch);
    task<void> child;
    const auto last = p.submit([&] {
        child = p.submit([] {});
        zel::platform::end_this_thread();
    });
    EXPECT_TRUE(last.wait(patience)) << "the task has ended nevertheless";
    EXPECT_TRUE(child.wait(patience));
    EXPECT_EQ(p.threads->thread_count(), 1u);
}

TEST(TaskThreads, CancelAtTheEndWhatIsLeftInTheRowOfARunningTask) {
    signal submitted, child_is_gone;
    pool p(one_thread);
    const auto child = make_task("", nullptr, [told = std::shared_ptr<void>(nullptr, [&](auto) {
                                                   child_is_gone.set();
                                               })] { ADD_FAILURE(); });
    p.submit([&] {
        p.processor->submit(child.share(), 0);
        submitted.set();
        child_is_gone.wait();
    });
    submitted.wait();
}

TEST(TaskThreads, RunWhatATaskHasSubmittedBeforeItBlocksOrComputesOnAndOn) {
    signal child_ran, first_blocks, ended;
    std::atomic<bool> goes_on{true};
    std::function<void()> again; // has to outlive the pool, as all that tasks use
    pool p({.cores = 2, .most_threads = 2, .stalled = hours});
    p.submit([&] {
        p.submit([&] { child_ran.set(); });
        first_blocks.set();
        ended.wait();
    });
    EXPECT_TRUE(first_blocks.comes() && child_ran.comes());
    // The other thread has no end of tasks in its own row.
    again = [&] {
        if (goes_on)
            p.submit(again);
    };
    p.submit(again);
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(p.submit([] {}).wait());
    goes_on = false;
    ended.set();
}

// A task of so many levels that waits for two that it has submitted, and for one in a queue.
void wait_for_children(pool& p, int levels, std::atomic<int>& ran) {
    ++ran;
    if (levels == 0)
        return;
    const auto queue = std::make_shared<task_queue>(1);
    const auto stored = make_task("", nullptr, [&] { ++ran; });
    store_or_cancel(stored.share(), queue, nullptr, p.processor);
    const auto child = [&, levels] { wait_for_children(p, levels - 1, ran); };
    const auto first = p.submit(child), second = p.submit(child);
    first.wait();
    second.wait();
    stored.wait();
}

TEST(TaskThreads, LetATaskWaitForItsChildrenWithAnyNumberOfCores) {
    for (std::uint32_t cores = 1; cores <= 8; ++cores) {
        pool p({.cores = cores, .stalled = hours}, pool::without_watch);
        std::atomic<int> ran{0};
        std::vector<task<void>> roots;
        for (std::uint32_t i = 0; i < cores; ++i)
            roots.push_back(p.submit([&] { wait_for_children(p, 4, ran); }));
        for (const auto& root : roots)
            ASSERT_TRUE(root.wait(patience)) << cores;
        EXPECT_EQ(ran, cores * (31 + 15));
    }
}

TEST(TaskThreads, NeverSleepWhileATaskIsLeft) {
    pool p({.cores = 2, .stalled = hours}, pool::without_watch);
    for (int round = 0; round < 30'000; ++round) {
        for (int i = round % 1000; i > 0; --i)
            zel::platform::pause_processor(); // a thread lingers for a while
        ASSERT_TRUE(p.submit([] {}).wait(patience)) << round;
    }
}

TEST(TaskThreads, WakeOneAnotherWhileATaskIsLeft) {
    for (int round = 0; round < 300; ++round) {
        pool p({.cores = 3, .stalled = hours}, pool::without_watch);
        for (int again = 0; again < 5; ++again) { // too few to take them for short ones
            std::latch all_run(3);
            std::vector<task<void>> tasks;
            while (tasks.size() < 3)
                tasks.push_back(p.submit([&] { all_run.arrive_and_wait(); }));
            for (const auto& t : tasks)
                ASSERT_TRUE(t.wait(patience)) << round;
        }
    }
}

TEST(ThreadCensus, CountsEveryStepOfThreadsThatComeWorkWaitSleepAndGo) {
    thread_census census;
    EXPECT_TRUE(census.may_add_one(1, 9));
    census.thread_starts();
    EXPECT_FALSE(census.may_add_one(1, 9));
    EXPECT_EQ(census.searching(), 1u);
    EXPECT_FALSE(census.may_linger(1)) << "it would take the only core";
    EXPECT_TRUE(census.may_linger(2));
    census.search_ends();
    EXPECT_EQ(census.running(), 1u);
    census.wait_begins();
    EXPECT_EQ(census.running(), 0u);
    EXPECT_TRUE(census.may_add_one(1, 9) && !census.may_add_one(1, 1));
    census.thread_starts();
    census.search_ends();
    census.wait_ends();
    census.extra_thread_starts();
    EXPECT_FALSE(census.may_linger(3)) << "two run";
    census.thread_falls_asleep();
    EXPECT_EQ(census.threads(), 3u);
    EXPECT_EQ(census.asleep(), 1u);
    EXPECT_EQ(census.take_most_awake(), 3u);
    EXPECT_EQ(census.take_most_awake(), 2u);
    census.thread_wakes();
    census.search_ends();
    census.search_begins();
    census.thread_falls_asleep();
    census.running_thread_ends();
    EXPECT_TRUE(census.may_add_one(2, 9)) << "in place of the one that ended, or beside the extra";
    census.sleeping_threads_end(1);
    EXPECT_EQ(census.extra(), 0u);
    EXPECT_EQ(census.threads(), 1u);
    census.thread_starts();
    census.thread_does_not_start();
    EXPECT_EQ(census.awake(), 1u);
    EXPECT_DEBUG_DEATH(census.search_ends(), "searching_ <= awake_") << "nobody searches";
}

TEST(TaskThreads, KeepNothingOfCanceledTasksBeTheyManyAndCheaply) {
    pool p(one_thread);
    signal go_on;
    p.submit([&] { go_on.wait(); });
    const auto captured = std::make_shared<int>();
    std::vector<task<void>> tasks;
    const auto made = [&] {
        tasks.push_back(make_task("", nullptr, [captured] { ADD_FAILURE(); }));
        return tasks.back();
    };
    const auto begin = std::chrono::steady_clock::now();
    const auto later = unbiased_clock::now() + 1h;
    for (std::int64_t i = 0; i < 100'000; ++i)
        p.schedule(made(), at(later + ticks(i * 7919 % 100'000))); // scattered
    for (int i = 0; i < 1'000; ++i)
        p.processor->submit(made().share(), 0);
    for (const auto& t : tasks)
        t.cancel();
    p.schedule(tasks.front(), at(moment::max()));
    p.processor->submit(tasks.back().share(), 0);
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_EQ(tasks.front().share().use_count(), 1);
    EXPECT_EQ(tasks.back().share().use_count(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    go_on.set();
}

TEST(TasksCoreModule, StartsItsThreadsAsSoonAsMemoryAllows) {
    task_threads_module_impl().get_limits(); // the threads are not started yet
    tasks_core_module_impl module;
    const auto ask = [&] { module.get_task_processor(); };
    EXPECT_GT(zel::test::failures_of(ask), 3);
    const auto made = make_task("", nullptr, [] {});
    module.get_task_processor()->submit(made.share(), 0);
    EXPECT_TRUE(made.wait());
}

TEST(TaskThreadsModule, NamesALimitThatIsOutOfRangeAndChangesNothing) {
    task_threads_module_impl module;
    const auto before = module.get_limits();
    const auto refusal_of = [&](auto change) -> std::string {
        auto limits = before;
        change(limits);
        try {
            module.set_limits(limits);
            return "none";
        } catch (const zel::exceptions::error& refusal) {
            return refusal.what();
        }
    };
    EXPECT_EQ(refusal_of([](auto& l) { l.cores = 0; }).substr(0, 58),
              "task_thread_limits::cores is 0, which is not from 1 to 512");
    EXPECT_EQ(refusal_of([](auto& l) { l.most_threads = 4097; }),
              "task_thread_limits::most_threads is 4097, which is not from 1 to 4096.");
    EXPECT_EQ(refusal_of([](auto& l) { l.stalled = 0ms; }),
              "task_thread_limits::stalled is 0, which is not from 1 to 3600000.");
    EXPECT_EQ(refusal_of([](auto& l) { l.idle = 25h; }),
              "task_thread_limits::idle is 90000000, which is not from 30 to 86400000.");
    EXPECT_EQ(module.get_limits().stalled, 50ms);
    EXPECT_EQ(refusal_of([](auto& l) { l.stalled = 49ms; }), "none");
    EXPECT_EQ(module.get_limits().stalled, 49ms);
    module.set_limits(before);
}

TEST(TaskRow, KeepsItsOrderAroundGapsWhichDoNotPileUp) {
    task_row row(0, task_row::endless);
    const auto made = [] { return make_task("", nullptr, [] {}).share(); };
    const auto first = made();
    auto latest = made();
    for (const auto& t : {first, latest, first})
        row.push(t);
    for (int i = 0; i < 10'000; ++i) { // while the first is stuck
        const auto next = made();
        row.push(next);
        EXPECT_NE(row.take_out(*std::exchange(latest, next)), nullptr);
    }
    EXPECT_LT(row.length(), 1'000u);
    EXPECT_EQ(row.take(), first);
    EXPECT_EQ(row.take_out(*first), nullptr) << "not there any more";
    EXPECT_EQ(row.take(), latest);
    EXPECT_EQ(row.take(), nullptr);
}

// Clocks of a test, in the system's place.
using reading = zel::platform::clock_reading;
std::atomic<std::int64_t> shown{0};
std::atomic<std::int64_t> rate{0};

TEST(UnbiasedClock, CountsTheSameTicksFromThePerformanceCounterWhereItHasNoOther) {
    const clock_replacement missing(clock::unbiased_time, [] { return reading(); });
    const clock_replacement counter(clock::performance_counter, [] { return reading(shown); });
    const clock_replacement its_rate(clock::performance_frequency, [] { return reading(rate); });
    shown = 7;
    rate = 3;
    EXPECT_EQ(unbiased_clock::now(), moment(ticks(23'333'333)));
    shown = std::chrono::nanoseconds(24h * 366).count() + 100;
    rate = 1'000'000'000;
    EXPECT_EQ(unbiased_clock::now(), moment(24h * 366 + ticks(1)));
}

TEST(TaskScheduler, RunsWhatIsDueInTheOrderOfTimesAndOfArrivalAndNothingElse) {
    const clock_replacement stopped(clock::unbiased_time, [] { return reading(shown); });
    shown = 1'000'000;
    pool p(one_thread);
    std::string ran;
    const auto schedule = [&](char name, const parameters& when) {
        auto t = make_task("", nullptr, [&ran, name] { ran += name; });
        p.schedule(t, when);
        return t;
    };
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    schedule('x', at(moment::max()));
    schedule('x', std::make_shared<delay>(most));
    const auto late = schedule('d', at(moment::max() - ticks(20)));
    const auto third = schedule('c', at(moment(ticks(1'020'000))));
    schedule('a', at(moment(ticks(1'009'991)))); // the same moment, rounded up
    schedule('b', at(moment(ticks(1'010'000))));
    p.schedule(third, at(moment()));
    schedule('1', at(moment::min())).wait();
    schedule('2', std::make_shared<delay>(-1'000'000'000'000'000'000)).wait();
    EXPECT_EQ(ran, "12") << "the clock stands still";
    shown = 2'000'000;
    third.wait();
    EXPECT_EQ(ran, "12abc") << "scheduled again, a task keeps its time";
    shown = most - 1;
    schedule('e', at(moment())).wait();
    EXPECT_TRUE(late.wait({false, 0}) && ran == "12abcde") << ran;
}

} // namespace
