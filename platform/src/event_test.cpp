#include "platform/src/watched_thread_test.h"

#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using namespace zel::platform;
using steady = std::chrono::steady_clock;
constexpr milliseconds at_once{0};

TEST(Event, StaysSignalledWhenManualAndIsTakenWhenAutoReset) {
    event manual(reset_mode::manual, false);
    EXPECT_FALSE(manual.wait(at_once));
    manual.set();
    EXPECT_TRUE(manual.wait() && manual.wait(at_once));
    manual.reset();
    EXPECT_FALSE(manual.wait(at_once));

    event automatic(reset_mode::automatic, true);
    EXPECT_TRUE(automatic.wait());
    automatic.set();
    automatic.set();
    EXPECT_TRUE(automatic.wait(milliseconds::max() - milliseconds(1)));
    EXPECT_FALSE(automatic.wait(milliseconds::min())) << "two sets that nobody took are one";
    automatic.set();
    automatic.reset();
    const auto start = steady::now();
    EXPECT_FALSE(automatic.wait(milliseconds(20)));
    EXPECT_GE(steady::now() - start, milliseconds(20));
}

TEST(Event, LetsAllWaitersThroughWhenManualAndOnePerSetInTheirOrderWhenAutoReset) {
    for (const reset_mode mode : {reset_mode::manual, reset_mode::automatic}) {
        event subject(mode, false);
        event through(reset_mode::automatic, false);
        std::atomic<int> last{-1};
        std::deque<event> leave;
        std::deque<watched_thread> threads;
        for (int i = 0; i < 4; ++i) {
            leave.emplace_back(reset_mode::manual, false);
            threads.emplace_back([&, i, &out = leave.back()] {
                event* const both[] = {&subject, &out};
                if (wait_any(both, patience) == 0U) {
                    last = i;
                    through.set();
                }
            });
            EXPECT_TRUE(threads.back().falls_asleep());
        }
        leave[1].set(); // one in the middle of the line goes away
        threads[1].join();
        for (const int next : {0, 2, 3}) {
            subject.set();
            if (mode == reset_mode::manual)
                break;
            EXPECT_TRUE(through.wait(patience));
            EXPECT_EQ(last, next);
        }
        threads.clear(); // ends only when all were let through
        EXPECT_EQ(subject.wait(at_once), mode == reset_mode::manual);
    }
}

TEST(WaitAny, ReturnsTheFirstInTheListAndTakesOnlyThatOne) {
    event manual(reset_mode::manual, true);
    event automatic(reset_mode::automatic, true);
    event never(reset_mode::manual, false);
    event* const manual_first[] = {&never, &manual, &automatic};
    event* const automatic_first[] = {&never, &automatic, &manual, &automatic};
    EXPECT_EQ(wait_any(manual_first), 1U);
    EXPECT_EQ(wait_any(automatic_first), 1U) << "it was not taken before";
    EXPECT_EQ(wait_any(automatic_first, at_once), 2U);
    manual.reset();
    EXPECT_EQ(wait_any(automatic_first, at_once), std::nullopt);
    EXPECT_EQ(wait_any(automatic_first, milliseconds(5)), std::nullopt);
}

TEST(WaitAny, IsWokenByAnyOfManyEventsAndLeavesTheOthersAlone) {
    for (const std::size_t size : {2U, 8U, 9U, 40U}) {
        std::deque<event> events;
        std::vector<event*> list;
        while (list.size() < size)
            list.push_back(&events.emplace_back(reset_mode::automatic, false));
        std::optional<std::size_t> woken_by;
        watched_thread waiter([&] { woken_by = wait_any(list, patience); });
        EXPECT_TRUE(waiter.falls_asleep());
        events.back().set();
        events.front().set(); // too late for the waiter, so it stays signalled
        waiter.join();
        EXPECT_EQ(woken_by, size - 1);
        EXPECT_FALSE(events.back().wait(at_once));
        EXPECT_TRUE(events.front().wait(at_once));
    }
}

TEST(Event, NeitherLosesNorDoublesASignalThatRacesWithTimeOuts) {
    constexpr int sets = 1000;
    event tick(reset_mode::automatic, false);
    event stop(reset_mode::manual, false);
    event taken(reset_mode::automatic, false);
    std::atomic<int> count{0};
    std::deque<watched_thread> waiters;
    for (int i = 0; i < 2; ++i)
        waiters.emplace_back([&] {
            event* const both[] = {&tick, &stop};
            for (std::optional<std::size_t> which; which != 1U;) {
                which = wait_any(both, milliseconds(1));
                if (which == 0U) {
                    ++count;
                    taken.set();
                }
            }
        });
    bool lost = false;
    for (int i = 0; i < sets && !lost; ++i) {
        // Every other one just when a time-out that began with the last one is over.
        const auto moment = steady::now() + std::chrono::microseconds(i % 2 * (950 + i % 150));
        while (steady::now() < moment) {
        }
        tick.set();
        lost = !taken.wait(patience);
    }
    stop.set();
    waiters.clear();
    EXPECT_FALSE(lost);
    EXPECT_EQ(count, sets);
    EXPECT_FALSE(tick.wait(at_once));
}

TEST(WaitAny, TakesOnlyOneOfTwoThatAreSetWhileItBegins) {
    event early(reset_mode::automatic, false);
    event late(reset_mode::automatic, false);
    std::atomic<int> round{0};
    constexpr int rounds = 3000;
    watched_thread setter([&] {
        for (int i = 1; i <= rounds; ++i) {
            while (round < i)
                std::this_thread::yield();
            const auto moment = steady::now() + std::chrono::nanoseconds(i % 64 * 10);
            while (steady::now() < moment) {
            }
            early.set();
        }
    });
    int missing = 0;
    event* const both[] = {&early, &late};
    for (int i = 1; i <= rounds; ++i) {
        late.set();
        round = i;
        const auto first = wait_any(both);
        missing += first == 0U ? !late.wait(at_once) : !early.wait(patience);
    }
    EXPECT_EQ(missing, 0);
}

TEST(Event, MayBeDestroyedByTheThreadThatWasLetThrough) {
    for (int i = 0; i < 200; ++i) {
        auto owner = std::make_unique<event>(reset_mode::manual, false);
        event& subject = *owner;
        watched_thread waiter([&] {
            owner->wait();
            owner.reset();
        });
        subject.set();
    }
}

} // namespace
