#include "platform/src/system_clocks.h"

#include <array>
#include <atomic>

namespace zel::platform {

namespace {

// Atomic because tests replace entries while other threads read the clocks;
// relaxed because an entry carries nothing but itself.
constinit std::array<std::atomic<clock_function>, 6> table = {
    &system_performance_counter, &system_performance_frequency, &system_unbiased_time, &system_time,
    &system_thread_cycles,       &system_thread_cycle_rate};

std::atomic<clock_function>& entry(clock which) noexcept {
    return table[static_cast<std::size_t>(which)];
}

} // namespace

clock_reading read_clock(clock which) noexcept {
    return entry(which).load(std::memory_order_relaxed)();
}

clock_reading read_clock_coarsely(clock which) noexcept {
    if (which == clock::unbiased_time &&
        entry(which).load(std::memory_order_relaxed) == &system_unbiased_time)
        return system_coarse_unbiased_time();
    return read_clock(which);
}

clock_replacement::clock_replacement(clock which, clock_function function) noexcept
    : which_(which), previous_(entry(which).exchange(function, std::memory_order_relaxed)) {}

clock_replacement::~clock_replacement() {
    entry(which_).store(previous_, std::memory_order_relaxed);
}

} // namespace zel::platform
