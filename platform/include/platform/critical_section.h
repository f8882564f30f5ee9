// Mutual exclusion for short bookkeeping.
//
// `plain_lock` is one word, and not recursive. `critical_section` may be entered again by
// the thread that is inside.
//
// Neither has a constructor or destructor with work in it, so they may stand in
// static storage of a library that is unloaded. No wait is a cancellation point. The
// child of a fork has another thread number than its parent, so it must not go on with a
// lock that the parent held.
#pragma once

#include <platform/export.h>
#include <platform/thread_annotations.h>
#include <platform/thread_id.h>

#include <atomic>
#include <cstdint>

namespace zel::platform {

class ZEL_THREAD_ATTRIBUTE(capability("lock")) plain_lock {
public:
    constexpr plain_lock() noexcept = default;
    plain_lock(const plain_lock&) = delete;
    plain_lock& operator=(const plain_lock&) = delete;

    void lock() noexcept ZEL_THREAD_ATTRIBUTE(acquire_capability()) {
        if (!try_take())
            lock_contended();
    }

    bool try_lock() noexcept ZEL_THREAD_ATTRIBUTE(try_acquire_capability(true)) {
        return try_take();
    }

    void unlock() noexcept ZEL_THREAD_ATTRIBUTE(release_capability()) {
        // Release: what was written inside is seen by the next owner.
        if (state_.exchange(free, std::memory_order_release) == contended)
            wake_next();
    }

private:
    static constexpr std::uint32_t free = 0;
    static constexpr std::uint32_t held = 1;
    static constexpr std::uint32_t contended = 2; // held, and somebody may sleep

    bool try_take() noexcept {
        std::uint32_t expected = free;
        return state_.compare_exchange_strong(expected, held, std::memory_order_acquire,
                                              std::memory_order_relaxed);
    }
    ZEL_EXPORT void lock_contended() noexcept;
    ZEL_EXPORT void wake_next() noexcept;

    std::atomic<std::uint32_t> state_{free};
};

class ZEL_THREAD_ATTRIBUTE(capability("lock")) critical_section {
public:
    constexpr critical_section() noexcept = default;
    critical_section(const critical_section&) = delete;
    critical_section& operator=(const critical_section&) = delete;

    ZEL_EXPORT void lock() noexcept ZEL_THREAD_ATTRIBUTE(acquire_capability());
    ZEL_EXPORT bool try_lock() noexcept ZEL_THREAD_ATTRIBUTE(try_acquire_capability(true));
    ZEL_EXPORT void unlock() noexcept ZEL_THREAD_ATTRIBUTE(release_capability());

private:
    plain_lock lock_;
    // Relaxed: a thread can find its own number here only if it wrote it itself.
    std::atomic<thread_id> owner_{no_thread};
    std::uint32_t depth_ = 0;
};

/// Holds a lock for a scope.
template <class Lock>
class ZEL_THREAD_ATTRIBUTE(scoped_lockable) scoped_lock {
public:
    explicit scoped_lock(Lock& lock) ZEL_THREAD_ATTRIBUTE(acquire_capability(lock)) : lock_(lock) {
        lock_.lock();
    }
    ~scoped_lock() ZEL_THREAD_ATTRIBUTE(release_capability()) { lock_.unlock(); }
    scoped_lock(const scoped_lock&) = delete;
    scoped_lock& operator=(const scoped_lock&) = delete;

private:
    Lock& lock_;
};

} // namespace zel::platform
