// Lets the n-th allocation of an operation fail, for every n it makes.
//
// Replaces the program's operators new and delete, so one source of a program includes
// it.
#pragma once

#include <cstdlib>
#include <functional>
#include <new>

namespace zel::test {

// The allocation of this thread that fails, counted down; negative for none.
inline thread_local int allocations_left = -1;

inline void* allocate(std::size_t size, std::size_t unit) {
    if (allocations_left >= 0 && allocations_left-- == 0)
        throw std::bad_alloc();
    return std::aligned_alloc(unit, (size + unit - 1) / unit * unit);
}

} // namespace zel::test

// Not inlined, or the compiler sees a free of what it takes for another allocator's.
[[gnu::noinline]] void* operator new(std::size_t size) {
    return zel::test::allocate(size, alignof(std::max_align_t));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    return zel::test::allocate(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return zel::test::allocate(size, alignof(std::max_align_t));
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

namespace zel::test {

// Lets the first, second, ... allocation fail until the action needs none more.
inline int failures_of(const std::function<void()>& action) {
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

} // namespace zel::test
