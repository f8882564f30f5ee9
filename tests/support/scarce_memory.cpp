#include "tests/support/scarce_memory.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// What this thread may still allocate; negative for any number.
thread_local int allocations_left = -1;
thread_local bool one_has_failed = false;
thread_local zel::test::shortage kind_now = zel::test::shortage::passing;

bool fails() {
    if (allocations_left < 0)
        return false;
    if (allocations_left > 0) {
        --allocations_left;
        return false;
    }
    if (kind_now == zel::test::shortage::passing)
        allocations_left = -1;
    return one_has_failed = true;
}

void* allocate(std::size_t size, std::size_t unit) {
    if (fails())
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
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace zel::test {

int failures_of(const std::function<void()>& operation, shortage kind) {
    for (int granted = 0;; ++granted) {
        kind_now = kind;
        one_has_failed = false;
        allocations_left = granted;
        try {
            operation();
        } catch (const std::bad_alloc&) {
        }
        allocations_left = -1;
        if (!one_has_failed)
            return granted;
    }
}

} // namespace zel::test
