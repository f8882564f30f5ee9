// What is left when an allocation of an operation fails, whichever it is.
#include "tests/support/routing.h"
#include "tests/support/scarce_memory.h"

#include <future>

namespace zel::event_routing::impl {
namespace {

using OutOfMemory = Routing;
using test::failures_of;

TEST_F(OutOfMemory, LeavesNothingHalfDone) {
    const test::log_capture log(5);
    const std::string paths = "a.long enough for the heap.x;b";
    const synchronous_event_part part = notes("");
    cookies held;
    while (held.size() < 200) { // more than fit on the stack
        const auto registers = [&] {
            held.push_back(listen("a.long enough for the heap.*", part));
        };
        EXPECT_GT(failures_of(registers), 5);
        ASSERT_EQ(events->GetEventHandlers().size(), held.size());
    }
    EXPECT_GT(failures_of([&] { EXPECT_NO_THROW(broadcast(paths)); }), 5);
    ASSERT_GT(log.lines().size(), 5u);
    EXPECT_EQ(log.texts()[0], "5  Broadcasting of '" + paths + "' event failed.\nstd::bad_alloc");
}

TEST_F(OutOfMemory, LeavesNoTaskAndNoBatchBehind) {
    const test::log_capture log(log::silent);
    std::atomic<int> started{0};
    std::promise<std::int64_t> delivered;
    const auto starts = [&](auto&&...) { ++started; };
    const auto delivers = [&](auto&, auto&, const routing_parameters& about) {
        delivered.set_value(about.at("cumulative_event_count").number);
        return true;
    };
    const cookies held = {listen("a", nullptr, starts, "queued", events->CreateTaskQueue()),
                          listen("a", nullptr, starts), listen("merged", delivers),
                          events->RegisterMonitorHandler([](auto&&...) {})};
    // The first use makes the task library, which is never tried again when that fails.
    broadcast("a", until_ended);
    started = 0;
    EXPECT_GT(failures_of([&] { broadcast("a"); }), 10);
    EXPECT_GT(failures_of([&] {
                  events->BroadcastCumulativeEvent({false, 0}, "merged", nullptr, {}, nullptr);
              }),
              5);
    EXPECT_EQ(delivered.get_future().get(), 1) << "failed calls left nothing to merge with";
    broadcast("a", until_ended);
    EXPECT_GE(started, 2);
    EXPECT_TRUE(events->EndAndWaitForHandlers()) << "no task was left behind";
}

} // namespace
} // namespace zel::event_routing::impl
