#include "platform/src/watched_thread_test.h"

#include <deque>
#include <gtest/gtest.h>

// Clang's annotations know no recursion.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

using namespace zel::platform;

bool free_for_another_thread(auto& lock) {
    bool entered = false;
    watched_thread([&] {
        entered = lock.try_lock();
        if (entered)
            lock.unlock();
    }).join();
    return entered;
}

void expect_one_thread_inside_at_a_time(auto& lock) {
    constexpr int rounds = 20'000;
    int counter = 0;
    {
        std::deque<watched_thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&, trying = i == 0] {
                for (int round = 0; round < rounds; ++round) {
                    if (!trying || !lock.try_lock())
                        lock.lock();
                    ++counter;
                    lock.unlock();
                }
            });
    }
    EXPECT_EQ(counter, 4 * rounds);
}

TEST(PlainLock, LetsOneThreadInAtATime) {
    plain_lock lock;
    expect_one_thread_inside_at_a_time(lock);
}

TEST(CriticalSection, LetsOneThreadInAtATimeAsOftenAsItLikes) {
    critical_section lock;
    expect_one_thread_inside_at_a_time(lock);
    lock.lock();
    EXPECT_TRUE(lock.try_lock());
    lock.lock();
    for (int held = 3; held > 0; --held) {
        EXPECT_FALSE(free_for_another_thread(lock)) << held;
        lock.unlock();
    }
    EXPECT_TRUE(free_for_another_thread(lock));
}

} // namespace
