// What a message costs the other processors: how many atomic operations it makes once its
// handlers are known, and that it takes no lock and makes no system call. Two cores show too
// little of it for a benchmark.
#include "platform/src/instruction_watch_test.h"
#include "tests/support/routing.h"

#include <gtest/gtest.h>

namespace zel::event_routing::impl {
namespace {

using platform::watch_instructions;
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

} // namespace
} // namespace zel::event_routing::impl
