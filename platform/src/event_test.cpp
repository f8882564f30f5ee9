#include "platform/src/watched_thread_test.h"

#include <deque>
#include <gtest/gtest.h>
#include <mutex>
#include <vector>

namespace {

using namespace zel::platform;
using steady = std::chrono::steady_clock;

TEST(Event, LetsOneWaiterPerSetThroughInTheirOrderAndStaysSignalledOnlyWhenManual) {
    event one(reset_mode::automatic, false);
    event leave(reset_mode::manual, false);
    event* const both[] = {&one, &leave};
    bool through[4] = {};
    std::deque<watched_thread> threads;
    for (std::size_t i = 0; i < 4; ++i) {
        threads.emplace_back(
            [&, i] { through[i] = wait_any(std::span(both, i == 1 ? 2 : 1), patience) == 0U; });
        EXPECT_TRUE(threads.back().falls_asleep());
    }
    leave.set(); // one in the middle of the line goes away
    threads[1].join();
    for (const std::size_t next : {0, 2, 3}) {
        one.set();
        threads[next].join();
        EXPECT_TRUE(through[next]);
    }
    EXPECT_TRUE(leave.wait(milliseconds::max() - milliseconds(1)));
    leave.reset();
    const auto start = steady::now();
    EXPECT_FALSE(leave.wait(milliseconds(20)));
    EXPECT_GE(steady::now() - start, milliseconds(20));
}

TEST(WaitAny, ReturnsTheFirstOfFewOrManyAndTakesOnlyThatOne) {
    for (const std::size_t size : {2U, 8U, 9U}) {
        std::deque<event> events;
        std::vector<event*> list;
        while (list.size() < size)
            list.push_back(&events.emplace_back(reset_mode::automatic, true));
        for (std::size_t i = 0; i < size; ++i)
            EXPECT_EQ(wait_any(list), i);

        std::optional<std::size_t> woken_by;
        watched_thread waiter([&] { woken_by = wait_any(list, patience); });
        EXPECT_TRUE(waiter.falls_asleep());
        events.back().set();
        events.front().set(); // too late for the waiter, so it stays signalled
        waiter.join();
        EXPECT_EQ(woken_by, size - 1);
        EXPECT_EQ(wait_any(list, milliseconds(0)), 0U);
    }
}

TEST(WaitAny, NeitherLosesNorDoublesASignalThatRacesWithTimeOutsAndAnotherSignal) {
    event tick(reset_mode::automatic, false);
    event tock(reset_mode::automatic, false);
    event stop(reset_mode::manual, false);
    std::atomic<int> count{0};
    watched_thread waiter([&] {
        event* const list[] = {&tick, &tock, &stop};
        for (std::optional<std::size_t> which; which != 2U; which = wait_any(list, milliseconds(1)))
            count += which.has_value();
    });
    for (int sets = 0; sets < 20'000 && count == sets; sets += 2) {
        // While the waiter begins, and sometimes just when its time is over.
        const auto start = steady::now();
        const auto end_of_time = std::chrono::microseconds(950 + sets % 150);
        const auto pause = sets % 20 ? std::chrono::nanoseconds(sets % 64 * 10) : end_of_time;
        while (steady::now() < start + pause) {
        }
        tock.set();
        tick.set();
        while (count < sets + 2 && steady::now() < start + patience)
            std::this_thread::yield();
    }
    stop.set();
    waiter.join();
    EXPECT_EQ(count, 20'000);
}

} // namespace
