// A number for each thread, so that threads can keep and count things in places of their own
// without atomic operations that others have to hear of.
//
//     place& own = places[thread_slot()];
//     if (thread_slot() != shared_thread_slot) ... a plain store ...
//     else ... as with any shared place ...
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

/// So many threads at a time have a number of their own.
inline constexpr std::uint32_t own_thread_slots = 64;
/// Shared by all other threads, and by those whose own actions at their end are running.
inline constexpr std::uint32_t shared_thread_slot = own_thread_slots;

/// Below own_thread_slots: no other living thread has the number, and what the threads that
/// had it before wrote is seen. Otherwise it is the shared slot. A thread may go from its own
/// number to the shared one, at its end. Never fails, costs a call.
ZEL_EXPORT std::uint32_t thread_slot() noexcept;

/// Whether this process was forked from one in which other threads had asked for a slot. Their
/// numbers are not given out again in the child, and what they had begun in their places never
/// ends. A thread that was just ending at the fork does not count.
ZEL_EXPORT bool threads_were_lost() noexcept;

} // namespace zel::platform
