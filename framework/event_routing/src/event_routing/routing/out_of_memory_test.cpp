// Lets the n-th allocation of an operation fail, for every n it makes.
#include "tests/support/routing.h"

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

using OutOfMemory = Routing;

// Lets the first, second, ... allocation fail until the action needs none more.
int failures_of(const std::function<void()>& action) {
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
