#include "framework/lifetime/basic_singleton.h"

#include "framework/exceptions/message_of_test.h"
#include "platform/src/watched_thread_test.h"

#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace zel::lifetime;
using zel::exceptions::message_of;
using zel::platform::watched_thread;

// The list is shared by all tests; each leaves nothing from here upwards.
constexpr int base = 1'000'000;

class action final : public end_of_life_action {
public:
    action(int longevity, std::function<void()> body)
        : end_of_life_action(base + longevity), body_(std::move(body)) {}
    void run() override { body_(); }

private:
    std::function<void()> body_;
};

void add(int longevity, std::function<void()> body) {
    add_end_of_life_action(std::make_unique<action>(longevity, std::move(body)));
}

// What was reported: the text and, if there is one, the exception.
class reports {
public:
    std::vector<std::string> texts;

private:
    zel::platform::exception_observer observer_{[this](auto code, auto arguments) {
        EXPECT_EQ(code, zel::platform::diagnostic::text_report);
        ASSERT_EQ(arguments.size(), 3U);
        texts.emplace_back(reinterpret_cast<const char*>(arguments[1]), arguments[0]);
        if (const auto* failure = reinterpret_cast<const std::exception*>(arguments[2]))
            texts.back() += failure->what();
    }};
};

TEST(EndOfLife, RunsAndDestroysFromTheHighestLongevityDownToTheThreshold) {
    std::string log;
    const auto add_named = [&](int longevity, char name) {
        const std::shared_ptr<void> at_end(nullptr, [&](void*) { log += '~'; });
        add(longevity, [&log, name, at_end] { log += name; });
    };
    add_named(5, 'd');
    add_named(7, 'b');
    add_named(0, 'e');
    add_named(7, 'a'); // of equal ones the latest goes first
    add_named(6, 'c');
    run_end_of_life_actions(base + 8);
    EXPECT_EQ(log, "");
    run_end_of_life_actions(base + 6);
    EXPECT_EQ(log, "a~b~c~");
    run_end_of_life_actions(base);
    EXPECT_EQ(log, "a~b~c~d~e~");
}

TEST(EndOfLife, TakesActionsThatActionsAddAndRunsThatTheyStart) {
    std::string log;
    const auto note = [&log](char name) { return [&log, name] { log += name; }; };
    add(5, [&] {
        log += '5';
        add(9, note('9'));
        add(-1, note('-'));
        add(2, [&] {
            run_end_of_life_actions(base - 1);
            log += '2';
        });
    });
    add(4, note('4'));
    add(1, note('1'));
    run_end_of_life_actions(base);
    EXPECT_EQ(log, "5941-2");
}

TEST(EndOfLife, ReportsWhatAnActionThrowsAndGoesOn) {
    const reports reported;
    int others = 0;
    add(3, [] { throw std::runtime_error("broken"); });
    add(2, [&] { ++others; });
    add(1, [] { throw 5; });
    add(0, [&] { ++others; });
    run_end_of_life_actions(base);
    EXPECT_EQ(others, 2);
    EXPECT_EQ(reported.texts, (std::vector<std::string>{"Atexit action throws exception!broken",
                                                        "Atexit action throws exception!"}));
}

TEST(EndOfLife, RunsEachActionOnceWhileOtherThreadsAddMore) {
    std::atomic<int> ran{0};
    std::atomic<int> adding{4};
    {
        std::deque<watched_thread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([&] {
                for (int i = 0; i < 1000; ++i)
                    add(i % 3, [&] { ++ran; });
                --adding;
            });
        while (adding != 0)
            run_end_of_life_actions(base);
    }
    run_end_of_life_actions(base);
    EXPECT_EQ(ran, 4000);
}

// Cells stand in static storage, so each test has a type of its own.
template <class T>
using cell = basic_singleton<T, const_longevity_traits<base>>;

struct slow {
    slow() {
        ++made;
        may_end.wait();
    }
    ~slow() { ++ended; }
    static inline std::atomic<int> made{0};
    static inline int ended = 0;
    static inline zel::platform::event may_end{zel::platform::reset_mode::manual, false};
};
constinit cell<slow> slow_cell;

const slow* slow_object() {
    return slow_cell.read([](const slow& object) { return &object; });
}

TEST(BasicSingleton, IsMadeOnceWhileOtherThreadsWaitAndNeverAgainAfterItsEnd) {
    const auto ask_only = [](const slow&) { return true; };
    EXPECT_FALSE(slow_cell.read_if_created(ask_only));
    std::vector<const slow*> seen(8);
    {
        std::deque<watched_thread> threads;
        for (auto& mine : seen)
            threads.emplace_back([&mine] { mine = slow_object(); });
        for (auto& thread : threads)
            EXPECT_TRUE(thread.falls_asleep());
        EXPECT_FALSE(slow_cell.read_if_created(ask_only));
        slow::may_end.set();
    }
    EXPECT_EQ(std::set(seen.begin(), seen.end()), std::set{slow_object()});
    run_end_of_life_actions(base + 1);
    EXPECT_TRUE(slow_cell.read_if_created(ask_only));
    EXPECT_EQ(slow::ended, 0);
    run_end_of_life_actions(base);
    EXPECT_EQ(slow::ended, 1);
    EXPECT_EQ(message_of<object_already_destroyed>(slow_object), "Object was already destroyed");
    EXPECT_EQ(slow::made, 1);
}

struct asking_for_itself {
    asking_for_itself();
    std::string answer;
};
constinit cell<asking_for_itself> asking_cell;
asking_for_itself::asking_for_itself()
    : answer(message_of<object_creation_error>([] { asking_cell.read([](auto&) {}); })) {}

TEST(BasicSingleton, RefusesToBeAskedForFromInsideItsMakingButNotFromAReader) {
    const auto answer = [](auto& object) { return object.answer; };
    EXPECT_EQ(asking_cell.read([&](auto&) { return asking_cell.read(answer); }),
              "Object creation failed");
    run_end_of_life_actions(base);
}

struct broken {
    broken() { throw std::out_of_range("attempt " + std::to_string(++attempts)); }
    static inline int attempts = 0;
};
constinit cell<broken> broken_cell;

TEST(BasicSingleton, RethrowsTheFailureOfItsOnlyMakingToEveryCaller) {
    const auto ask = [] { broken_cell.read([](auto&) {}); };
    for (int caller = 0; caller < 3; ++caller) {
        EXPECT_EQ(message_of<std::out_of_range>(ask), "attempt 1");
        EXPECT_FALSE(broken_cell.read_if_created([](auto&) { return true; }));
        run_end_of_life_actions(base); // no object, so no end either
    }
}

// Two throws have two addresses, and neither is that of a constructor.
template <class Exception>
bool tells_throws_apart() {
    const auto address_of = [](auto&& thrower) {
        try {
            thrower();
        } catch (const Exception& e) {
            return e.address();
        }
        return static_cast<const void*>(nullptr);
    };
    if constexpr (std::is_default_constructible_v<Exception>)
        return address_of([] { throw Exception(); }) != address_of([] { throw Exception(); });
    else
        return address_of([] { throw Exception("a"); }) != address_of([] { throw Exception("b"); });
}

TEST(Exceptions, KnowWhereTheyWereThrown) {
    EXPECT_TRUE(tells_throws_apart<zel::exceptions::error>());
    EXPECT_TRUE(tells_throws_apart<zel::exceptions::fatal>());
    EXPECT_TRUE(tells_throws_apart<object_already_destroyed>());
    EXPECT_TRUE(tells_throws_apart<object_creation_error>());
}

struct held_elsewhere {
    ~held_elsewhere() { ended = true; }
    void end() { throw std::runtime_error(" held"); }
    static inline bool ended = false;
};
constinit cell<held_elsewhere> held_cell;

TEST(BasicSingleton, LeavesAnObjectAliveThatRefusesToEndButGivesItToNobody) {
    const reports reported;
    held_cell.read([](auto&) {});
    run_end_of_life_actions(base);
    EXPECT_EQ(reported.texts, std::vector<std::string>{"Atexit action throws exception! held"});
    EXPECT_FALSE(held_elsewhere::ended);
    EXPECT_THROW(held_cell.read([](auto&) {}), object_already_destroyed);
}

} // namespace
