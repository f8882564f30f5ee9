// Lets the n-th allocation of an operation fail, for every n it makes.
#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <tasklib/keep_registered.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <new>

namespace {

// The allocation of this thread that fails, counted down; negative for none.
thread_local int allocations_left = -1;

void* allocate(std::size_t size, std::size_t unit) {
    if (allocations_left >= 0 && allocations_left-- == 0)
        throw std::bad_alloc();
    return std::aligned_alloc(unit, (size + unit - 1) / unit * unit);
}

} // namespace

// Not inlined, or the compiler sees a free of what it takes for another allocator's.
[[gnu::noinline]] void* operator new(std::size_t size) {
    return allocate(size, alignof(std::max_align_t));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size, alignof(std::max_align_t));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace zel::event_routing::impl {
namespace {

TEST(OutOfMemory, LeavesNothingHalfDone) {
    const test::log_capture log(5);
    const auto events = std::make_shared<EventRoutingImpl>();
    const auto part = [](const auto&, const auto&, const auto&) { return true; };
    std::vector<std::shared_ptr<tasklib::keep_registered>> cookies;
    int refused = 0;
    int broken_off = 0;
    for (int granted = 0; cookies.size() < 200; ++granted) { // more than fit on the stack
        allocations_left = granted;
        try {
            cookies.push_back(events->RegisterEventHandler(nullptr, "a.long enough for the heap.*",
                                                           part, nullptr, "handler"));
        } catch (const std::bad_alloc&) {
            ++refused;
        }
        allocations_left = -1;
        ASSERT_EQ(events->GetEventHandlers().size(), cookies.size());
    }
    const std::string paths = "a.long enough for the heap.x;b";
    for (bool failed = true; failed; ++broken_off) {
        allocations_left = broken_off;
        EXPECT_NO_THROW(events->BroadcastEvent(paths, nullptr, {}, nullptr));
        failed = allocations_left < 0;
        allocations_left = -1;
    }
    EXPECT_GT(refused, 5);
    EXPECT_GT(log.lines().size(), 5u);
    EXPECT_EQ(log.lines()[0].text, " Broadcasting of 'a.long enough for the heap.x;b' event "
                                   "failed.\nstd::bad_alloc");
}

// Lets the first, second, ... allocation fail until the action needs none more.
template <class Action>
int failures_of(const Action& action) {
    for (int granted = 0;; ++granted) {
        allocations_left = granted;
        try {
            action();
        } catch (const std::bad_alloc&) {
        }
        const bool was_enough = allocations_left >= 0;
        allocations_left = -1;
        if (was_enough)
            return granted;
    }
}

TEST(OutOfMemory, LeavesNoTaskAndNoBatchBehind) {
    const test::log_capture log(log::silent);
    const auto events = std::make_shared<EventRoutingImpl>();
    std::atomic<int> started{0};
    std::promise<std::int64_t> delivered;
    const std::vector<std::shared_ptr<tasklib::keep_registered>> cookies = {
        events->RegisterEventHandler(
            events->CreateTaskQueue(), "a", nullptr, [&](auto&&...) { ++started; }, "queued"),
        events->RegisterEventHandler(
            nullptr, "a", nullptr, [&](auto&&...) { ++started; }, "not queued"),
        events->RegisterEventHandler(
            nullptr, "merged",
            [&](const auto&, const auto&, const routing_parameters& about) {
                delivered.set_value(about.at("cumulative_event_count").number);
                return true;
            },
            nullptr, "merged"),
        events->RegisterMonitorHandler([](auto&&...) {})};
    EXPECT_GT(failures_of([&] { events->BroadcastEvent("a", nullptr, {}, nullptr); }), 10);
    EXPECT_GT(failures_of([&] {
                  events->BroadcastCumulativeEvent({false, 0}, "merged", nullptr, {}, nullptr);
              }),
              5);
    EXPECT_EQ(delivered.get_future().get(), 1) << "failed calls left nothing to merge with";
    events->BroadcastEvent("a", nullptr, {{"synchronous", -1}}, nullptr);
    EXPECT_GE(started, 2);
    EXPECT_TRUE(events->EndAndWaitForHandlers()) << "no task was left behind";
}

} // namespace
} // namespace zel::event_routing::impl
