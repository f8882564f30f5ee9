// What a message costs the other processors: how many atomic operations it makes once its
// handlers are known, and that it takes no lock and makes no system call. Two cores show too
// little of it for a benchmark.
#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_container.h"
#include "platform/src/instruction_watch_test.h"
#include "tests/support/routing.h"

#include <tasklib/task_threads_module.h>

#include <gtest/gtest.h>
#include <semaphore>

namespace zel::event_routing::impl {
namespace {

using platform::mark_watched;
using platform::watch_instructions;
using platform::watch_marked;
using platform::watched_instructions;

constexpr auto answers = [](auto&&...) { return true; };
constexpr auto adds = [](auto&&...) {};

class HotRoad : public testing::Test {
protected:
    // Nothing where it cannot be watched.
    static std::optional<watched_instructions> cost_of(const std::function<void()>& message) {
        return watch_instructions(
            [&] {
                for (int i = 0; i < 10; ++i)
                    message();
            },
            message);
    }
    std::vector<std::shared_ptr<tasklib::keep_registered>> cookies_;
};

// One takes from the thread's credit of broadcasts to count, and one names the list if it is not
// that of the message before. Both are in lines of the cache that this thread alone writes, and
// none is made for a handler.
TEST_F(HotRoad, ABroadcastMakesOneAtomicOperationAndOneForAnotherPath) {
    const auto events = std::make_shared<EventRoutingImpl>();
    for (const int handlers : {1, 9}) {
        while (cookies_.size() < std::size_t(handlers))
            cookies_.push_back(
                events->RegisterEventHandler(nullptr, "a.*", answers, nullptr, "counts"));
        const auto cost = cost_of([&] { events->BroadcastEvent("a.b", nullptr, {}, nullptr); });
        if (!cost)
            GTEST_SKIP() << "processes may not be watched here";
        EXPECT_EQ(cost->locked, 1) << handlers;
        EXPECT_EQ(cost->system_calls, 0);
    }
    const auto two_paths = cost_of([&] {
        events->BroadcastEvent("a.b", nullptr, {}, nullptr);
        events->BroadcastEvent("a.c", nullptr, {}, nullptr);
    });
    EXPECT_EQ(two_paths->locked, 4);
}

TEST_F(HotRoad, ARequestAndASnowballMakeNone) {
    const auto requests = std::make_shared<RequestRoutingImpl>(std::weak_ptr<IEventRouting>());
    const auto snowballs = std::make_shared<SnowballRoutingImpl>();
    cookies_.push_back(requests->RegisterRequestHandler("a.b", 0, answers, "answers"));
    for (const auto* path : {"a.b", "a.*"})
        cookies_.push_back(snowballs->RegisterSnowballHandler(path, adds, "adds"));
    std::shared_ptr<serialization::IDataHolder> answer, error;
    const auto request = cost_of([&] { requests->SendRequest("a.b", nullptr, answer, error, {}); });
    const auto snowball =
        cost_of([&] { snowballs->SendSnowball("a.b", nullptr, answer, error, {}); });
    if (!request || !snowball)
        GTEST_SKIP() << "processes may not be watched here";
    EXPECT_EQ(request->locked, 0);
    EXPECT_EQ(snowball->locked, 0);
    EXPECT_EQ(request->system_calls + snowball->system_calls, 0);
}

// Tasks of a pool with one thread, which is blocked while they are submitted.
class task_road {
public:
    task_road() {
        tasklib::task_thread_limits limits;
        limits.cores = limits.most_threads = 1;
        limits.stalled = platform::milliseconds(1); // the watch looks as often as with traffic
        tasklib::get_task_threads_module()->set_limits(limits);
        processor_ = tasklib::get_task_processor();
        {
            std::vector<tasklib::task<void>> dropped; // their memory is in stock then
            for (int i = 0; i < 30; ++i)
                dropped.emplace_back(make([] {})).cancel();
        }
        submit_some();
        container_->wait({}, 0);
        submit([&] {
            blocked_.release();
            go_on_.acquire();
        });
        blocked_.acquire();
        submit_some();
    }
    void submit(auto body) {
        tasklib::submit_or_cancel(make(std::move(body)).share(), *processor_);
    }
    void submit_some() {
        for (int i = 0; i < 10; ++i)
            submit([] {});
    }
    void run_all() {
        go_on_.release();
        container_->wait({}, 0);
    }

private:
    // Without a name, which the watch would show on the thread: a task takes long here.
    tasklib::task<void> make(auto body) {
        return tasklib::make_task("", container_, std::move(body));
    }

    std::binary_semaphore blocked_{0}, go_on_{0};
    std::shared_ptr<tasklib::task_container_low_level_ifc> container_ =
        std::make_shared<tasklib::low_level_task_container>("");
    std::shared_ptr<tasklib::task_processor_ifc> processor_;
};

// To enter the container and the pool and to leave them, to be claimed, to end, to be released;
// and to hold cancellation off from the end of the run.
TEST(HotRoadOfATask, MakesAtMostTwentyFiveAtomicOperationsFromItsMakingToItsEnd) {
    const auto to_submit = watch_marked([] {
        task_road road;
        mark_watched();
        road.submit([] {});
        mark_watched();
        road.run_all();
    });
    const auto to_run = watch_marked([] {
        task_road road;
        road.submit(&mark_watched);
        road.submit(&mark_watched);
        for (int i = 0; i < 5; ++i) // so that the thread has taken both at once
            road.submit_some();
        road.run_all();
    });
    if (!to_submit || !to_run)
        GTEST_SKIP() << "processes may not be watched here";
    EXPECT_LE(to_submit->locked + to_run->locked, 25)
        << to_submit->locked << " and " << to_run->locked;
}

} // namespace
} // namespace zel::event_routing::impl
