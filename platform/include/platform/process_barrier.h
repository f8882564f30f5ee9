// An order between a store and a later load that costs its frequent side nothing.
//
// Two threads that each announce something and then look for what the other one
// announced may both miss it, unless a full fence stands between the two steps on
// either side. Where one side does so all the time and the other seldom, the seldom
// one pays for both: it sends a fence to every thread that runs.
//
//     frequent side                     seldom side
//     announce (release store)          announce (acquire and release)
//     light_barrier()                   heavy_barrier()
//     look (load)                       look (load)
//
// At least one of the two sees the other. Where the system sends no such fences, both
// sides exchange one word of the process: whoever comes second takes over what the first
// one announced.
#pragma once

#include <platform/export.h>

#include <atomic>

namespace zel::platform {

namespace detail {
// Relaxed: who reads an old value makes a fence too many.
ZEL_EXPORT extern std::atomic<bool> heavy_barrier_reaches_all;
// Sequentially consistent exchanges alone. One word, because exchanges of different ones
// order nothing between two threads; and ThreadSanitizer refuses std::atomic_thread_fence.
ZEL_EXPORT extern std::atomic<bool> exchanged_by_all;
} // namespace detail

/// Before the first heavy barrier, by whoever makes what the two sides share. May
/// take some milliseconds the first time.
ZEL_EXPORT void prepare_heavy_barrier() noexcept;

/// Tens of microseconds while other threads run.
ZEL_EXPORT void heavy_barrier() noexcept;

inline void light_barrier() noexcept {
    if (detail::heavy_barrier_reaches_all.load(std::memory_order_relaxed))
        std::atomic_signal_fence(std::memory_order_seq_cst);
    else
        detail::exchanged_by_all.exchange(true, std::memory_order_seq_cst);
}

} // namespace zel::platform
