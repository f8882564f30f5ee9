#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "tests/support/routing.h"

#include <condition_variable>
#include <set>

namespace zel::event_routing::impl {
namespace {

using threading::universal_timeout;

constexpr std::int64_t second = 1'000'000; // as delay
constexpr std::int64_t ticks_of_a_second = 10 * second;

class CumulativeEvents : protected stopped_clock, public Routing {
protected:
    // No delivery is left to end the service later, in another test.
    void TearDown() override {
        if (events)
            events->EndAndWaitForHandlers();
    }

    void call(const std::string& path, std::int64_t delay = 0, const char* payload = nullptr,
              const routing_parameters& parameters = {}) {
        events->BroadcastCumulativeEvent({false, delay}, path,
                                         payload ? serialization::make_payload(std::string(payload))
                                                 : nullptr,
                                         parameters, nullptr);
    }
    using deliveries = std::multiset<std::string>; // path, payload and parameters
    // Waits until there are so many.
    deliveries next(std::size_t count = 1) {
        std::unique_lock inside(guard);
        EXPECT_TRUE(arrived.wait_for(inside, platform::patience,
                                     [&] { return delivered.size() >= count; }));
        return std::exchange(delivered, {});
    }

    const platform::thread_id test_thread = platform::this_thread_id();
    std::mutex guard;
    std::condition_variable arrived;
    deliveries delivered;
    cookie handler = listen("*", [this](auto& path, auto& payload, auto& parameters) {
        EXPECT_NE(platform::this_thread_id(), test_thread);
        std::string text = path + " " + text_of(payload);
        for (const auto& [name, value] : parameters)
            text += " " + name + "=" + std::to_string(value.number);
        std::lock_guard inside(guard);
        delivered.insert(text);
        arrived.notify_one();
        return true;
    });
};

TEST_F(CumulativeEvents, AreMergedUntilTheyAreDueAndBringTheLatestAndTheirNumber) {
    call("p;q", 10 * second, "first", {{"dropped", 1}});
    call("p;q", 0);
    call("p;q", 0, "last", {{"kept", 1}, {"cumulative_event_count", 77}});
    call("q;p"); // another order is another path, and due at once
    EXPECT_EQ(next(), deliveries{"q;p none cumulative_event_count=1"});
    ticks += 10 * ticks_of_a_second - 1;
    call("one tick before");
    EXPECT_EQ(next(), deliveries{"one tick before none cumulative_event_count=1"});
    ticks += 1;
    call("due"); // makes the scheduler look at the replaced clock
    EXPECT_EQ(next(2), (deliveries{"due none cumulative_event_count=1",
                                   "p;q last cumulative_event_count=3 kept=1"}));
}

TEST_F(CumulativeEvents, BeginAnewWhileTheLastBatchIsBroadcast) {
    const auto slow = listen("p", blocks());
    call("p");
    ASSERT_TRUE(running.comes());
    call("p", 10 * second);
    call("p");
    go_on.set();
    EXPECT_EQ(next(), deliveries{"p none cumulative_event_count=1"});
    ticks += 10 * ticks_of_a_second;
    call("due");
    EXPECT_EQ(next(2),
              (deliveries{"due none cumulative_event_count=1", "p none cumulative_event_count=2"}));
}

TEST_F(CumulativeEvents, NeverComeAfterAnEndlessDelayOrTheEnd) {
    for (const universal_timeout endless :
         {universal_timeout{}, universal_timeout{false, std::int64_t(1) << 62}})
        events->BroadcastCumulativeEvent(endless, "never", nullptr, {}, nullptr);
    call("at once", -1);
    EXPECT_EQ(next(), deliveries{"at once none cumulative_event_count=1"});
    const auto payload = serialization::make_payload(1);
    for (const bool has_ended : {false, true}) {
        events->BroadcastCumulativeEvent({false, 10 * second}, "p", payload, {}, nullptr);
        events->BroadcastCumulativeEvent({false, 10 * second}, "p", payload, {}, nullptr);
        EXPECT_EQ(payload.use_count(), has_ended ? 1 : 2);
        events->EndAndWaitForHandlers();
    }
    ticks += 1000 * ticks_of_a_second;
    const std::weak_ptr service = events;
    handler.reset();
    events.reset();
    EXPECT_TRUE(service.expired()) << "no delivery holds it";
    EXPECT_EQ(payload.use_count(), 1);
    EXPECT_EQ(delivered, deliveries());
}

TEST_F(CumulativeEvents, AreFlushedOrCanceledBeforeTheyAreDueWhichLeavesTheNextBatchItsTime) {
    const auto payload = serialization::make_payload(std::string("payload"));
    const auto pending = [&] {
        events->BroadcastCumulativeEvent({false, 10 * second}, "p", payload, {}, nullptr);
    };
    const auto flushes = [&](const char* path) {
        bool result = false; // not on the test's thread, which the handler does not want to see
        std::jthread([&] { result = flush_cumulative_event(*events, path); }).join();
        return result;
    };
    pending();
    pending();
    EXPECT_FALSE(flushes("q"));
    EXPECT_TRUE(flushes("p"));
    EXPECT_EQ(next(), deliveries{"p payload cumulative_event_count=2"}) << "at once";
    EXPECT_FALSE(flushes("p"));
    pending();
    EXPECT_TRUE(cancel_cumulative_event(*events, "p"));
    EXPECT_FALSE(cancel_cumulative_event(*events, "p"));
    EXPECT_EQ(payload.use_count(), 1) << "nothing waits for the moment any more";
    ticks += 5 * ticks_of_a_second;
    call("p", 10 * second, "later");
    ticks += 5 * ticks_of_a_second; // when the former batches would have been due
    call("due");
    EXPECT_EQ(next(), deliveries{"due none cumulative_event_count=1"});
    ticks += 5 * ticks_of_a_second;
    call("due");
    EXPECT_EQ(next(2), (deliveries{"due none cumulative_event_count=1",
                                   "p later cumulative_event_count=1"}));
}

TEST_F(CumulativeEvents, OutliveTheTaskThatBeganTheBatch) {
    const auto task = tasklib::make_task("canceled", nullptr, [this] {
        call("p", 10 * second);
        tasklib::get_this_taskcancellation()->cancel();
    });
    tasklib::submit_or_cancel(task.share(), *tasklib::get_task_processor());
    task.get();
    call("p");
    ticks += 10 * ticks_of_a_second;
    call("due");
    EXPECT_EQ(next(2),
              (deliveries{"due none cumulative_event_count=1", "p none cumulative_event_count=2"}));
}

} // namespace
} // namespace zel::event_routing::impl
