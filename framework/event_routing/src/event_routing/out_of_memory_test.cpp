// Lets the n-th allocation of an operation fail, for every n it makes.
#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <tasklib/keep_registered.h>

#include <cstdlib>
#include <new>

namespace {

// The allocation of this thread that fails, counted down; negative for none.
thread_local int allocations_left = -1;

} // namespace

namespace {

void* counted(void* memory) {
    if (allocations_left >= 0 && allocations_left-- == 0) {
        std::free(memory);
        memory = nullptr;
    }
    return memory ? memory : throw std::bad_alloc();
}

} // namespace

// Not inlined, or the compiler sees a free of what it takes for another allocator's.
[[gnu::noinline]] void* operator new(std::size_t size) {
    return counted(std::malloc(size));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace zel::event_routing::impl {
namespace {

// Runs the operation until it makes no more allocations than were granted;
// returns how often one failed.
template <class Operation>
int fail_each_allocation(Operation&& operation) {
    for (int granted = 0;; ++granted) {
        allocations_left = granted;
        operation();
        const bool failed = allocations_left < 0;
        allocations_left = -1;
        if (!failed)
            return granted;
    }
}

TEST(OutOfMemory, LeavesNoHalfRegisteredHandler) {
    const auto events = std::make_shared<EventRoutingImpl>();
    const auto part = [](const auto&, const auto&, const auto&) { return true; };
    const auto known = events->RegisterEventHandler(nullptr, "a", part, nullptr, "known");
    const int failures = fail_each_allocation([&] {
        bool refused = false;
        try {
            events->RegisterEventHandler(nullptr, "a.long enough not to fit into a string itself",
                                         part, nullptr, "comes and goes");
        } catch (const std::bad_alloc&) {
            refused = true;
        }
        const bool ran_out = allocations_left < 0;
        allocations_left = ran_out ? -1 : 1'000'000;
        EXPECT_EQ(refused, ran_out);
        EXPECT_EQ(events->GetEventHandlers().size(), 1u);
        if (ran_out)
            allocations_left = -1;
    });
    EXPECT_GT(failures, 5);
}

TEST(OutOfMemory, EndsABroadcastWithALogLine) {
    const test::log_capture log(5);
    const auto events = std::make_shared<EventRoutingImpl>();
    int calls = 0;
    std::vector<std::shared_ptr<tasklib::keep_registered>> cookies;
    for (int i = 0; i < 200; ++i) // more than fit on the stack
        cookies.push_back(events->RegisterEventHandler(
            nullptr, "a.*",
            [&](const auto&, const auto&, const auto&) {
                ++calls;
                return true;
            },
            nullptr, "counts"));
    int thrown = 0;
    const int failures = fail_each_allocation([&] {
        calls = 0;
        try {
            events->BroadcastEvent("a.b;a.c", nullptr, {}, nullptr);
        } catch (const std::bad_alloc&) {
            ++thrown; // only while the paths are taken apart
        }
        if (allocations_left >= 0) {
            EXPECT_EQ(calls, 200);
        }
    });
    const auto lines = log.lines(5);
    EXPECT_GT(thrown, 0);
    EXPECT_GT(failures, thrown + 5) << "the lists of handlers grow on the heap";
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(failures - thrown));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].text, " Broadcasting of 'a.b;a.c' event failed.\nstd::bad_alloc");
}

} // namespace
} // namespace zel::event_routing::impl
