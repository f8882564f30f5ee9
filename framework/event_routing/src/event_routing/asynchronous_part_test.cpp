#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <tasklib/keep_registered.h>
#include <tasklib/task_queue.h>

#include <algorithm>
#include <latch>
#include <mutex>
#include <stdexcept>

namespace zel::event_routing::impl {
namespace {

using platform::patience;

// For ends that nothing announces.
bool comes_true(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + patience;
    while (!condition() && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    return condition();
}

class AsynchronousPart : public testing::Test {
protected:
    using cookie = std::shared_ptr<tasklib::keep_registered>;

    cookie listen(const std::string& path, synchronous_event_part first,
                  std::function<void(const std::string&)> second,
                  const std::shared_ptr<tasklib::task_queue_ifc>& queue = nullptr) {
        return events->RegisterEventHandler(
            queue, path, std::move(first),
            [second](const std::string& given, const auto&, const auto&) { second(given); }, "x");
    }
    cookie listen(const std::string& path, std::function<void(const std::string&)> second,
                  const std::shared_ptr<tasklib::task_queue_ifc>& queue = nullptr) {
        return listen(path, nullptr, std::move(second), queue);
    }
    void broadcast(const std::string& paths, routing_parameters parameters = {}) {
        events->BroadcastEvent(paths, nullptr, parameters, nullptr);
    }
    // Waits for all asynchronous parts without ending them.
    void broadcast_and_wait(const std::string& paths) { broadcast(paths, {{"synchronous", -1}}); }

    auto note(const std::string& text) {
        return [=, this](const std::string& path) {
            std::lock_guard inside(guard);
            notes.push_back(text + "<" + path + ">");
        };
    }
    std::vector<std::string> taken_notes() {
        std::lock_guard inside(guard);
        return std::exchange(notes, {});
    }

    std::mutex guard;
    std::vector<std::string> notes;
    platform::event running{platform::reset_mode::manual, false};
    platform::event go_on{platform::reset_mode::manual, false};
    // Stands in a part until it is told to go on.
    std::function<void(const std::string&)> blocks = [this](const std::string&) {
        running.set();
        EXPECT_TRUE(go_on.wait(patience));
    };
    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
};

TEST_F(AsynchronousPart, StartsWhenItsSynchronousPartAgreesOrIsMissing) {
    const test::log_capture log(5);
    const auto agrees = listen(
        "a.*", [](auto&&...) { return true; }, note("agrees"));
    const auto refuses = listen(
        "a.*", [](auto&&...) { return false; }, note("refuses"));
    const auto throws = listen(
        "a.*", [](auto&&...) -> bool { throw std::runtime_error("r"); }, note("throws"));
    const auto alone = listen("*", note("alone"));
    broadcast_and_wait("a.b;a.c");
    auto notes_of_tasks = taken_notes();
    std::sort(notes_of_tasks.begin(), notes_of_tasks.end());
    EXPECT_EQ(notes_of_tasks, (std::vector<std::string>{"agrees<a.b;a.c>", "alone<a.b;a.c>"}));
}

TEST_F(AsynchronousPart, GetsWhatWasBroadcastEvenAfterItsCallerHasGone) {
    platform::event seen(platform::reset_mode::manual, false);
    const auto handler = events->RegisterEventHandler(
        nullptr, "*", nullptr,
        [&](const std::string& path, const event_data&, const routing_parameters& parameters) {
            blocks(path);
            if (path == "a.long enough for the heap" && parameters.at("reason").text == "r")
                seen.set();
        },
        "x");
    {
        const routing_parameters parameters{{"reason", "r"}};
        events->BroadcastEvent(std::string("a.long enough for the heap"), nullptr, parameters,
                               nullptr);
    }
    const auto another = listen("b", note("")); // the matches of the path are found anew
    go_on.set();
    EXPECT_TRUE(seen.wait(patience));
}

TEST_F(AsynchronousPart, RunsThroughItsQueueInOrderUnlessSomebodyWaitsForIt) {
    const auto queue = events->CreateTaskQueue();
    const auto first = listen("first", blocks, queue);
    const auto rest = listen("rest.*", note(""), queue);
    broadcast("first");
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back("<rest." + std::to_string(i) + ">");
        broadcast("rest." + std::to_string(i));
    }
    EXPECT_TRUE(running.wait(patience));
    broadcast_and_wait("rest.x"); // while the queue is busy
    EXPECT_EQ(taken_notes(), (std::vector<std::string>{"<rest.x>"}));
    platform::event last(platform::reset_mode::manual, false);
    const auto after = listen(
        "last", [&](auto&) { last.set(); }, queue);
    broadcast("last");
    go_on.set();
    EXPECT_TRUE(last.wait(patience));
    EXPECT_EQ(taken_notes(), expected);
}

TEST_F(AsynchronousPart, IsWaitedForAsLongAsTheParameterSays) {
    [[maybe_unused]] const auto handlers = {listen("a", blocks), listen("a", blocks),
                                            listen("a", blocks)};
    for (const routing_parameter_value& none :
         {routing_parameter_value(0), routing_parameter_value(std::int64_t(1) << 32),
          routing_parameter_value("5000"), routing_parameter_value(30)}) {
        const auto begin = std::chrono::steady_clock::now();
        broadcast("a", {{"synchronous", none}});
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
    }
    for (const std::int64_t endless : {std::int64_t(-1), std::int64_t(4294967295)}) {
        go_on.reset();
        running.reset();
        platform::event returned(platform::reset_mode::manual, false);
        platform::watched_thread waiter([&] {
            broadcast("a", {{"synchronous", endless}});
            returned.set();
        });
        EXPECT_TRUE(waiter.falls_asleep());
        EXPECT_FALSE(returned.wait(platform::milliseconds(0)));
        go_on.set();
        waiter.join();
        EXPECT_TRUE(returned.wait(platform::milliseconds(0)));
    }
}

TEST_F(AsynchronousPart, NeverStartsAfterItsServiceEndedTheHandlers) {
    std::atomic<int> synchronous_calls{0};
    const auto counts = [&](auto&&...) { return ++synchronous_calls != 0; };
    const auto handler = listen("a", counts, note(""));
    const auto queued = listen("a", note("queued"), events->CreateTaskQueue());
    broadcast_and_wait("a");
    EXPECT_EQ(taken_notes().size(), 2u);
    EXPECT_TRUE(events->EndAndWaitForHandlers());
    broadcast_and_wait("a");
    broadcast("a");
    EXPECT_TRUE(events->EndAndWaitForHandlers());
    // A queue that nobody empties would be full by now and hold each broadcast up.
    const auto began = std::chrono::steady_clock::now();
    for (int i = 0; i < 1100; ++i)
        broadcast("a");
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
    EXPECT_EQ(taken_notes(), std::vector<std::string>());
    EXPECT_EQ(synchronous_calls, 1103);
}

TEST_F(AsynchronousPart, KeepsADropOnAnotherThreadWaitingAndStartsNoMore) {
    auto owned = std::make_shared<int>(7);
    const std::weak_ptr<int> callable = owned;
    std::atomic<int> starts{0};
    const auto queue = events->CreateTaskQueue();
    auto handler = listen(
        "a",
        [&, owned](const std::string& path) {
            ++starts;
            blocks(path);
        },
        queue);
    owned.reset();
    broadcast("a");
    broadcast("a"); // waits in the queue for its turn
    EXPECT_TRUE(running.wait(patience));
    platform::watched_thread dropper([&] {
        handler.reset();
        EXPECT_TRUE(callable.expired());
        EXPECT_EQ(starts, 1);
    });
    EXPECT_TRUE(dropper.falls_asleep());
    broadcast("a"); // is unlinked already
    go_on.set();
    dropper.join();
    events->EndAndWaitForHandlers();
    EXPECT_EQ(starts, 1);
}

// The promise of the drop also while a synchronous part, which it does not wait
// for, keeps the callable alive.
TEST_F(AsynchronousPart, DoesNotStartWhenItsSynchronousPartEndsAfterTheDrop) {
    auto handler = listen(
        "a",
        [this](const std::string& path, const auto&, const auto&) {
            blocks(path);
            return true;
        },
        note("started"));
    std::jthread broadcaster([&] { broadcast_and_wait("a"); });
    EXPECT_TRUE(running.wait(patience));
    handler.reset();
    go_on.set();
    broadcaster.join();
    EXPECT_EQ(taken_notes(), std::vector<std::string>());
}

TEST_F(AsynchronousPart, MayDropItsOwnCookieAndTheLastReferenceToTheService) {
    auto owned = std::make_shared<int>(7);
    const std::weak_ptr<int> callable = owned;
    const std::weak_ptr<EventRoutingImpl> service = events;
    platform::event dropped(platform::reset_mode::manual, false);
    cookie own;
    platform::event may_drop(platform::reset_mode::manual, false);
    own = listen(
        "a",
        [&, owned](auto&) {
            may_drop.wait(patience);
            own.reset();
            EXPECT_TRUE(service.expired());
            EXPECT_FALSE(callable.expired()) << "the running call keeps it";
            dropped.set();
        },
        events->CreateTaskQueue());
    owned.reset();
    broadcast("a");
    events.reset();
    may_drop.set();
    ASSERT_TRUE(dropped.wait(patience));
    EXPECT_TRUE(comes_true([&] { return callable.expired(); }));
}

TEST_F(AsynchronousPart, IsLoggedWhenItFailsAndAgainWhenNobodyAsked) {
    const test::log_capture log(2);
    const auto fails = listen("a.b", [](auto&) { throw std::runtime_error("r"); });
    broadcast_and_wait("a.b");
    events->EndAndWaitForHandlers();
    events.reset();
    ASSERT_TRUE(comes_true([&] { return log.lines().size() == 2; }));
    const auto lines = log.lines();
    EXPECT_EQ(lines[0].text, "task handling of a.b event: failed.\nr");
    EXPECT_EQ(lines[1].text, "task handling of a.b event: failed without a caller check.\nr");
}

} // namespace
} // namespace zel::event_routing::impl
