// Identity of the calling thread: the system's 32-bit thread number.
//
// Numbers are used again after a thread has ended, so a thread that ends while
// something still names it as an owner is an error of its code.
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

using thread_id = std::uint32_t;

/// No thread has this number.
inline constexpr thread_id no_thread = 0xFFFFFFFF;

/// The calling thread's number. Cached per thread, right again after a fork.
ZEL_EXPORT thread_id this_thread_id() noexcept;

} // namespace zel::platform
