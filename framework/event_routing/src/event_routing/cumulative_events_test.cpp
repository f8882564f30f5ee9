#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <tasklib/keep_registered.h>

#include <condition_variable>
#include <mutex>

namespace zel::event_routing::impl {
namespace {

using platform::patience;
using threading::universal_timeout;

// Stands still unless a test moves it, so that nothing is due by accident.
std::atomic<std::int64_t> ticks{1'000'000'000};
constexpr std::int64_t second = 1'000'000; // as delay

class payload : public serialization::IDataHolder {
    std::shared_ptr<serialization::IData> GetData() const override { return nullptr; }
};

class CumulativeEvents : public testing::Test {
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

    void call(const std::string& path, std::int64_t delay = 0, event_data data = nullptr,
              const routing_parameters& parameters = {}) {
        events->BroadcastCumulativeEvent({false, delay}, path, data, parameters, nullptr);
    }
    // The next delivery, in the order of arrival.
    delivered next() {
        std::unique_lock inside(guard);
        EXPECT_TRUE(arrived.wait_for(inside, patience, [&] { return !deliveries.empty(); }));
        if (deliveries.empty())
            return {};
        auto first = deliveries.front();
        deliveries.erase(deliveries.begin());
        return first;
    }
    std::int64_t next_count() { return next().parameters["cumulative_event_count"].number; }

    const platform::clock_replacement stands_still{platform::clock::unbiased_time,
                                                   [] { return std::optional(ticks.load()); }};
    std::mutex guard;
    std::condition_variable arrived;
    std::vector<delivered> deliveries;
    std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
    std::shared_ptr<tasklib::keep_registered> handler = events->RegisterEventHandler(
        nullptr, "*",
        [this](const std::string& path, const event_data& data, const routing_parameters& p) {
            std::lock_guard inside(guard);
            deliveries.push_back({path, data, p, platform::this_thread_id()});
            arrived.notify_one();
            return true;
        },
        nullptr, "");
};

TEST_F(CumulativeEvents, AreMergedUntilTheyAreDueAndBringTheLatestAndTheirNumber) {
    auto released = std::make_shared<const payload>();
    const std::weak_ptr<const payload> first = released;
    const auto last = std::make_shared<const payload>();
    call("p;q", 10 * second, std::move(released), {{"dropped", 1}});
    call("p;q", 0);
    call("p;q", 0, last, {{"kept", 1}, {"cumulative_event_count", 77}});
    EXPECT_TRUE(first.expired());
    call("q;p");
    EXPECT_EQ(next().path, "q;p") << "another order is another path, and due at once";
    ticks += 10 * second * 10 - 1;
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
    platform::event running(platform::reset_mode::manual, false);
    platform::event go_on(platform::reset_mode::manual, false);
    const auto slow = events->RegisterEventHandler(
        nullptr, "p",
        [&](auto&&...) {
            running.set();
            return go_on.wait(patience);
        },
        nullptr, "");
    call("p");
    ASSERT_TRUE(running.wait(patience));
    call("p", 10 * second);
    call("p");
    go_on.set();
    EXPECT_EQ(next_count(), 1);
    ticks += 10 * second * 10;
    call("due");
    EXPECT_EQ(next_count() + next_count(), 2 + 1);
}

TEST_F(CumulativeEvents, NeverComeAfterAnEndlessDelayOrTheEnd) {
    for (const universal_timeout endless :
         {universal_timeout{}, universal_timeout{false, std::int64_t(1) << 62}})
        events->BroadcastCumulativeEvent(endless, "never", nullptr, {}, nullptr);
    call("at once", -1);
    EXPECT_EQ(next().path, "at once");
    const auto data = std::make_shared<const payload>();
    call("pending", 10 * second, data);
    events->EndAndWaitForHandlers();
    call("after the end", 0, data);
    ticks += 1000 * second * 10;
    const std::weak_ptr<EventRoutingImpl> service = events;
    handler.reset();
    events.reset();
    EXPECT_TRUE(service.expired()) << "no delivery holds it";
    EXPECT_EQ(data.use_count(), 1);
    EXPECT_EQ(deliveries.size(), 0u);
}

TEST_F(CumulativeEvents, OutliveTheTaskThatBeganTheBatch) {
    const auto task = tasklib::make_task("canceled", nullptr, [this] {
        call("p", 10 * second);
        tasklib::get_this_taskcancellation()->cancel();
    });
    tasklib::submit_or_cancel(task.share(), *tasklib::get_task_processor());
    task.get();
    call("p");
    ticks += 10 * second * 10;
    call("due");
    EXPECT_EQ(next_count() + next_count(), 2 + 1);
}

} // namespace
} // namespace zel::event_routing::impl
