#include "tests/support/routing.h"

#include <tasklib/task_queue.h>

namespace zel::event_routing::impl {
namespace {

class AsynchronousPart : public Routing {
protected:
    cookie start(const std::string& path, const asynchronous_event_part& part,
                 const std::shared_ptr<tasklib::task_queue_ifc>& queue = nullptr) {
        return listen(path, nullptr, part, "x", queue);
    }
};

TEST_F(AsynchronousPart, StartsWhenItsSynchronousPartAgreesOrIsMissing) {
    const test::log_capture log(log::silent);
    const std::pair<synchronous_event_part, std::string> parts[] = {
        {[](auto&&...) { return true; }, "second<a.b;a.c>"},
        {nullptr, "second<a.b;a.c>"},
        {[](auto&&...) { return false; }, ""},
        {[](auto&&...) -> bool { throw std::runtime_error("r"); }, ""}};
    for (const auto& [first, expected] : parts) {
        const auto handler = listen("a.*", first, notes("second"));
        EXPECT_EQ(notes_of("a.b;a.c", until_ended), expected);
    }
}

TEST_F(AsynchronousPart, GetsWhatWasBroadcastEvenAfterItsCallerHasGone) {
    signal seen;
    const auto handler =
        start("*", [&](const std::string& path, auto&, const routing_parameters& parameters) {
            blocks()();
            if (path == "a.long enough for the heap" && parameters.at("reason").text == "r")
                seen.set();
        });
    broadcast("a.long enough for the heap", {{"reason", "r"}});
    const auto another = start("b", notes("")); // the matches of the path are found anew
    go_on.set();
    EXPECT_TRUE(seen.comes());
}

TEST_F(AsynchronousPart, RunsThroughItsQueueInOrderUnlessSomebodyWaitsForIt) {
    const auto queue = events->CreateTaskQueue();
    signal last;
    const auto ends = [&](auto&&...) { last.set(); };
    const cookies handlers = {start("first", blocks(), queue), start("rest.*", notes(""), queue),
                              start("last", ends, queue)};
    broadcast("first");
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        const auto path = "rest." + std::to_string(i);
        expected += (i ? " <" : "<") + path + ">";
        broadcast(path);
    }
    EXPECT_TRUE(running.comes());
    EXPECT_EQ(notes_of("rest.x", until_ended), "<rest.x>") << "while the queue is busy";
    broadcast("last");
    go_on.set();
    EXPECT_TRUE(last.comes());
    EXPECT_EQ(taken_notes(), expected);
}

TEST_F(AsynchronousPart, IsWaitedForAsLongAsTheParameterSays) {
    const cookies handlers = {start("a", blocks()), start("a", blocks())};
    for (const routing_parameter_value& none :
         {routing_parameter_value(0), routing_parameter_value(std::int64_t(1) << 32),
          routing_parameter_value("60000"), routing_parameter_value(30)})
        broadcast("a", {{"synchronous", none}}); // a longer wait would be too long for the parts
    for (const std::int64_t endless : {std::int64_t(-1), std::int64_t(4294967295)}) {
        go_on.reset();
        std::atomic<bool> has_returned{false};
        platform::watched_thread waiter([&] {
            broadcast("a", {{"synchronous", endless}});
            has_returned = true;
        });
        EXPECT_TRUE(waiter.falls_asleep());
        EXPECT_FALSE(has_returned);
        go_on.set();
        waiter.join();
    }
}

TEST_F(AsynchronousPart, NeverStartsAfterItsServiceEndedTheHandlers) {
    std::atomic<int> synchronous_calls{0};
    const auto counts = [&](auto&&...) { return ++synchronous_calls != 0; };
    const cookies handlers = {listen("a", counts, notes("")),
                              start("a", notes("queued"), events->CreateTaskQueue())};
    EXPECT_NE(notes_of("a", until_ended), "");
    EXPECT_TRUE(events->EndAndWaitForHandlers());
    broadcast("a", until_ended);
    // A queue that nobody empties would be full in the end and hold each broadcast up.
    for (int i = 0; i < 1100; ++i)
        broadcast("a");
    EXPECT_TRUE(events->EndAndWaitForHandlers());
    EXPECT_EQ(taken_notes(), "");
    EXPECT_EQ(synchronous_calls, 1102);
}

// The promise of the drop also while a synchronous part, which it does not wait
// for, keeps the callable alive.
TEST_F(AsynchronousPart, DoesNotStartWhenItsSynchronousPartEndsAfterTheDrop) {
    auto handler = listen("a", blocks(), notes("started"));
    std::jthread broadcaster([&] { broadcast("a", until_ended); });
    EXPECT_TRUE(running.comes());
    handler.reset();
    go_on.set();
    broadcaster.join();
    EXPECT_EQ(taken_notes(), "");
}

TEST_F(AsynchronousPart, MayDropItsOwnCookieAndTheLastReferenceToTheService) {
    cookie own;
    const std::weak_ptr service = events;
    signal dropped;
    const auto captured = std::make_shared<int>();
    auto monitor = events->RegisterMonitorHandler([captured](auto&&...) {});
    const auto drops = [&](auto&&...) {
        blocks()();
        own.reset();
        EXPECT_TRUE(service.expired());
        monitor.reset();
        EXPECT_EQ(captured.use_count(), 1) << "it is not told of this part any more";
        dropped.set();
    };
    own = start("a", drops, events->CreateTaskQueue());
    broadcast("a");
    events.reset();
    go_on.set();
    EXPECT_TRUE(dropped.comes());
}

TEST_F(AsynchronousPart, IsLoggedWhenItFailsAndAgainWhenNobodyAsked) {
    const test::log_capture log(2);
    const auto fails = start("a.b", [](auto&&...) { throw std::runtime_error("r"); });
    broadcast("a.b", until_ended);
    events->EndAndWaitForHandlers();
    events.reset();
    EXPECT_TRUE(comes_true([&] { return log.lines().size() == 2; }));
    EXPECT_EQ(log.texts(),
              (texts{"2 task handling of a.b event: failed.\nr",
                     "7 task handling of a.b event: failed without a caller check.\nr"}));
}

} // namespace
} // namespace zel::event_routing::impl
