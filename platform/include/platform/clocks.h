// Clocks and counters, and their rates.
//
// Every reading goes through one table, in which a test may put its own
// function, also one that answers "not there". Readings may be taken on any
// thread; replace only while no other test depends on the same clock.
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

enum class clock {
    performance_counter,   ///< monotonic, in ticks of performance_frequency
    performance_frequency, ///< ticks of the performance counter in a second
    unbiased_time,         ///< 100 ns ticks; stands still while the machine sleeps
    system_time,           ///< 100 ns ticks since 1601-01-01 UTC
    thread_cycles,         ///< the calling thread's processor time, a system call each
    thread_cycle_rate,     ///< ticks of thread_cycles in a second
};

/// What a clock shows, or nothing where the system lacks it. Not a std::optional: GCC
/// returns that through memory, written in two pieces and read as a whole, for which the
/// processor waits longer than for all the rest of a reading.
class clock_reading {
public:
    constexpr clock_reading() noexcept = default;
    constexpr clock_reading(std::int64_t ticks) noexcept : ticks_(ticks), is_there_(true) {}

    constexpr explicit operator bool() const noexcept { return is_there_; }
    /// Ticks; 0 where there is nothing.
    constexpr std::int64_t operator*() const noexcept { return ticks_; }

private:
    std::int64_t ticks_ = 0;
    bool is_there_ = false;
};

ZEL_EXPORT clock_reading read_clock(clock which) noexcept;

/// The same at a fraction of the cost and up to some milliseconds behind, where the
/// system offers that; a replaced clock is read as it is.
ZEL_EXPORT clock_reading read_clock_coarsely(clock which) noexcept;

using clock_function = clock_reading (*)();

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
