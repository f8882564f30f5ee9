// What a backend supplies for the clock table.
#pragma once

#include <platform/clocks.h>

namespace zel::platform {

std::optional<std::int64_t> system_performance_counter();
std::optional<std::int64_t> system_performance_frequency();
std::optional<std::int64_t> system_unbiased_time();
std::optional<std::int64_t> system_coarse_unbiased_time();
std::optional<std::int64_t> system_time();
std::optional<std::int64_t> system_thread_cycles();
std::optional<std::int64_t> system_thread_cycle_rate();

} // namespace zel::platform
