// What a backend supplies for the clock table.
#pragma once

#include <platform/clocks.h>

namespace zel::platform {

clock_reading system_performance_counter();
clock_reading system_performance_frequency();
clock_reading system_unbiased_time();
clock_reading system_coarse_unbiased_time();
clock_reading system_time();
clock_reading system_thread_cycles();
clock_reading system_thread_cycle_rate();

} // namespace zel::platform
