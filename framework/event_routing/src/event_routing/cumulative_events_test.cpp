#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "tests/support/routing.h"

#include <condition_variable>

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

    struct delivered {
        std::string path;
        event_data data;
        routing_parameters parameters;
        platform::thread_id thread;
    };

    void call(const std::string& path, std::int64_t delay = 0, const event_data& payload = nullptr,
              const routing_parameters& parameters = {}) {
        events->BroadcastCumulativeEvent({false, delay}, path, payload, parameters, nullptr);
    }
    // The next delivery, in the order of arrival.
    delivered next() {
        std::unique_lock inside(guard);
        EXPECT_TRUE(
            arrived.wait_for(inside, platform::patience, [&] { return !deliveries.empty(); }));
        if (deliveries.empty())
            return {};
        auto first = deliveries.front();
        deliveries.erase(deliveries.begin());
        return first;
    }
    std::int64_t next_count() { return next().parameters["cumulative_event_count"].number; }

    std::mutex guard;
    std::condition_variable arrived;
    std::vector<delivered> deliveries;
    cookie handler = listen("*", [this](auto& path, auto& payload, auto& parameters) {
        std::lock_guard inside(guard);
        deliveries.push_back({path, payload, parameters, platform::this_thread_id()});
        arrived.notify_one();
        return true;
    });
};

TEST_F(CumulativeEvents, AreMergedUntilTheyAreDueAndBringTheLatestAndTheirNumber) {
    auto released = serialization::make_payload(1);
    const std::weak_ptr first = released;
    const auto last = serialization::make_payload(2);
    call("p;q", 10 * second, std::exchange(released, nullptr), {{"dropped", 1}});
    call("p;q", 0);
    call("p;q", 0, last, {{"kept", 1}, {"cumulative_event_count", 77}});
    EXPECT_TRUE(first.expired());
    call("q;p");
    EXPECT_EQ(next().path, "q;p") << "another order is another path, and due at once";
    ticks += 10 * ticks_of_a_second - 1;
    call("one tick before");
    EXPECT_EQ(next().path, "one tick before");
    ticks += 1;
    call("due"); // makes the scheduler look at the replaced clock
    auto merged = next();
    const auto other = next();
    if (merged.path == "due")
        merged = other;
    EXPECT_EQ(merged.path, "p;q");
    EXPECT_EQ(merged.data, last);
    EXPECT_EQ(merged.parameters, (routing_parameters{{"kept", 1}, {"cumulative_event_count", 3}}));
    EXPECT_NE(merged.thread, platform::this_thread_id());
}

TEST_F(CumulativeEvents, BeginAnewWhileTheLastBatchIsBroadcast) {
    const auto slow = listen("p", blocks());
    call("p");
    ASSERT_TRUE(running.comes());
    call("p", 10 * second);
    call("p");
    go_on.set();
    EXPECT_EQ(next_count(), 1);
    ticks += 10 * ticks_of_a_second;
    call("due");
    EXPECT_EQ(next_count() + next_count(), 2 + 1);
}

TEST_F(CumulativeEvents, NeverComeAfterAnEndlessDelayOrTheEnd) {
    for (const universal_timeout endless :
         {universal_timeout{}, universal_timeout{false, std::int64_t(1) << 62}})
        events->BroadcastCumulativeEvent(endless, "never", nullptr, {}, nullptr);
    call("at once", -1);
    EXPECT_EQ(next().path, "at once");
    const auto payload = serialization::make_payload(1);
    call("pending", 10 * second, payload);
    events->EndAndWaitForHandlers();
    call("after the end", 0, payload);
    ticks += 1000 * ticks_of_a_second;
    const std::weak_ptr service = events;
    handler.reset();
    events.reset();
    EXPECT_TRUE(service.expired()) << "no delivery holds it";
    EXPECT_EQ(payload.use_count(), 1);
    EXPECT_EQ(deliveries.size(), 0u);
}

// The calling task shares its cancellation with what it starts.
TEST_F(CumulativeEvents, AreNotStuckWhenADeliveryWasCanceled) {
    const auto task = tasklib::make_task("canceled", nullptr, [this] {
        call("p", 10 * second);
        tasklib::get_this_taskcancellation()->cancel();
    });
    tasklib::submit_or_cancel(task.share(), *tasklib::get_task_processor());
    task.get();
    call("p");
    EXPECT_EQ(next_count(), 1) << "the batch went with its delivery";
}

} // namespace
} // namespace zel::event_routing::impl
