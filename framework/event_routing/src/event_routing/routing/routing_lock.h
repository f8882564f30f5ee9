// The lock of a service's routing maps, with the generation of their registrations.
//
// A generation ends with every change. Its number is odd while somebody holds the lock
// exclusively, so whoever keeps the matches of a path sees two things in one look: that
// they still hold, and that no registration is in progress for which to wait.
#pragma once

#include "framework/threading/recursive_shared_mutex.h"

#include <atomic>
#include <cstdint>

namespace zel::event_routing::impl {

class ZEL_THREAD_ATTRIBUTE(capability("lock")) routing_lock
    : private threading::recursive_shared_mutex {
public:
    using generation = std::uint64_t;

    static bool is_stable(generation number) noexcept { return number % 2 == 0; }

    /// Whoever has heard of a change finds another number than before. Inside a shared
    /// hold the number stays, and is odd only where the thread changes the maps itself.
    generation current_generation() const noexcept {
        return generation_.load(std::memory_order_acquire);
    }

    using recursive_shared_mutex::lock_shared;
    using recursive_shared_mutex::unlock_shared;

    void lock() ZEL_THREAD_ATTRIBUTE(acquire_capability()) {
        recursive_shared_mutex::lock();
        if (depth_++ == 0)
            next_generation();
    }
    void unlock() ZEL_THREAD_ATTRIBUTE(release_capability()) {
        if (--depth_ == 0)
            next_generation();
        recursive_shared_mutex::unlock();
    }

private:
    void next_generation() noexcept { generation_.fetch_add(1, std::memory_order_release); }

    std::uint32_t depth_ = 0; // of the exclusive holds; whoever has them may use it
    // Release and acquire: a change comes with its number.
    std::atomic<generation> generation_{0};
};

} // namespace zel::event_routing::impl
