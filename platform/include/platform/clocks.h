// Clocks and counters, and their rates.
//
// Every reading goes through one table, in which a test may put its own
// function, also one that answers "not there". Readings may be taken on any
// thread; replace only while no other test depends on the same clock.
#pragma once

#include <platform/export.h>

#include <cstdint>
#include <optional>

namespace zel::platform {

enum class clock {
    performance_counter,   ///< monotonic, in ticks of performance_frequency
    performance_frequency, ///< ticks of the performance counter in a second
    unbiased_time,         ///< 100 ns ticks; stands still while the machine sleeps
    system_time,           ///< 100 ns ticks since 1601-01-01 UTC
    thread_cycles,         ///< the calling thread's processor time, a system call each
    thread_cycle_rate,     ///< ticks of thread_cycles in a second
};

/// The clock's reading, or nothing where the system lacks it.
ZEL_EXPORT std::optional<std::int64_t> read_clock(clock which) noexcept;

/// The same at a fraction of the cost and up to some milliseconds behind, where the
/// system offers that; a replaced clock is read as it is.
ZEL_EXPORT std::optional<std::int64_t> read_clock_coarsely(clock which) noexcept;

using clock_function = std::optional<std::int64_t> (*)();

/// Puts a function in place of a clock for as long as the object lives.
class ZEL_EXPORT clock_replacement {
public:
    clock_replacement(clock which, clock_function function) noexcept;
    ~clock_replacement();
    clock_replacement(const clock_replacement&) = delete;
    clock_replacement& operator=(const clock_replacement&) = delete;

private:
    clock which_;
    clock_function previous_;
};

} // namespace zel::platform
