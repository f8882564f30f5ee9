// The kernel's numbers for the urgency of a thread's input and output. Its own
// header for them is not valid C++ in every version that is about.
#pragma once

namespace zel::platform::io_priority {

inline constexpr int of_one_thread = 1; ///< as `which` of the system calls
inline constexpr int levels = 8;        ///< the rest of a value by this is its level
inline constexpr int normal_level = 4;

enum kind : long { none = 0, best_effort = 2, idle = 3 };

constexpr kind kind_of(long value) noexcept {
    return static_cast<kind>(value >> 13 & 7);
}

constexpr long value_of(kind k, long level) noexcept {
    return k << 13 | level;
}

} // namespace zel::platform::io_priority
