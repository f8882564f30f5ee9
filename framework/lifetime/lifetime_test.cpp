#include "framework/lifetime/basic_singleton.h"

#include "platform/src/watched_thread_test.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace zel::lifetime;
using zel::platform::watched_thread;

// The list is shared by all tests; each leaves nothing from here upwards.
constexpr int base = 1'000'000;

struct action final : end_of_life_action {
    action(int longevity, std::function<void()> f)
        : end_of_life_action(base + longevity), body(std::move(f)) {}
    void run() override { body(); }
    std::function<void()> body;
};

void add(int longevity, std::function<void()> body) {
    add_end_of_life_action(std::make_unique<action>(longevity, std::move(body)));
}

TEST(EndOfLife, RunsFromTheHighestLongevityDownAlsoWhatActionsAddAndRunAndAfterAFailure) {
    std::string log;
    const auto note = [&log](char name) { return [&log, name] { log += name; }; };
    add(7, note('b'));
    add(7, note('a')); // of equal ones the latest goes first
    add(6, [&] {
        add(9, note('c'));
        add(-1, note('e'));
        add(4, [&] {
            run_end_of_life_actions(base - 1);
            throw 5;
        });
        throw std::bad_alloc();
    });
    add(3, note('d'));
    run_end_of_life_actions(base);
    EXPECT_EQ(log, "abcde");
}

TEST(EndOfLife, RunsEachActionOnceWhileAnotherThreadAddsMore) {
    std::atomic<int> ran{0};
    std::atomic<int> added{0};
    watched_thread adding([&] {
        for (; added < 4000; ++added)
            add(added % 3, [&] { ++ran; });
    });
    while (added < 4000)
        run_end_of_life_actions(base);
    run_end_of_life_actions(base);
    EXPECT_EQ(ran, 4000);
}

// Cells stand in static storage, so each test has a type of its own.
template <class T>
constinit basic_singleton<T, const_longevity_traits<base>> cell;

template <class T>
const T* object_of() {
    return cell<T>.read([](const T& object) { return &object; });
}

struct slow {
    slow() {
        EXPECT_THROW(object_of<slow>(), object_creation_error) << "from inside its making";
        may_end.wait();
    }
    ~slow() { ++ended; }
    static inline int ended = 0;
    static inline zel::platform::event may_end{zel::platform::reset_mode::manual, false};
};

TEST(BasicSingleton, IsMadeOnceWhileOtherThreadsWaitAndNeverAgainAfterItsEnd) {
    watched_thread making(&object_of<slow>);
    watched_thread asking(&object_of<slow>);
    EXPECT_TRUE(asking.falls_asleep());
    EXPECT_FALSE(cell<slow>.read_if_created([](auto&) { return true; }));
    slow::may_end.set();
    making.join();
    asking.join();
    run_end_of_life_actions(base + 1);
    EXPECT_EQ(slow::ended, 0);
    run_end_of_life_actions(base);
    EXPECT_EQ(slow::ended, 1);
    EXPECT_THROW(object_of<slow>(), object_already_destroyed);
}

struct counted {
    ~counted() { ++ended; }
    static inline std::atomic<int> ended = 0;
};

TEST(BasicSingleton, EndsAlsoWhenItWasMadeOnlyJustNow) {
    using counted_cell = basic_singleton<counted, const_longevity_traits<base>>;
    constexpr int rounds = 1000;
    const auto cells = std::make_unique<counted_cell[]>(rounds);
    std::atomic<int> next{-1};
    watched_thread making([&] {
        for (int made = 0; made < rounds; ++made) {
            while (next < made)
                std::this_thread::yield();
            try {
                cells[made].read([](auto&) { return 0; });
            } catch (const object_already_destroyed&) { // by the other thread, just now
            }
        }
    });
    for (int round = 0; round < rounds; ++round) {
        next = round;
        while (!cells[round].read_if_created([](auto&) { return true; }))
            std::this_thread::yield();
        run_end_of_life_actions(base);
        EXPECT_EQ(counted::ended, round + 1);
    }
}

struct broken {
    broken() { throw ++attempts; }
    static inline int attempts = 0;
};

struct held_elsewhere {
    ~held_elsewhere() { ADD_FAILURE() << "destroyed although it is held"; }
    void end() { throw 5; }
};

TEST(BasicSingleton, IsForNobodyWhenItsMakingFailedOrItRefusedToEnd) {
    EXPECT_THROW(object_of<broken>(), int);
    EXPECT_THROW(object_of<broken>(), int);
    EXPECT_EQ(broken::attempts, 1);
    object_of<held_elsewhere>();
    run_end_of_life_actions(base);
    EXPECT_THROW(object_of<held_elsewhere>(), object_already_destroyed);
}

} // namespace
