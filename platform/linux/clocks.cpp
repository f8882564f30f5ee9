#include "platform/src/system_clocks.h"

#include <ctime>

namespace zel::platform {

namespace {

constexpr std::int64_t nanoseconds_per_second = 1'000'000'000;
constexpr std::int64_t nanoseconds_per_tick = 100;
// From 1601-01-01 to 1970-01-01 in 100 ns ticks.
constexpr std::int64_t unix_epoch = 116'444'736'000'000'000;

clock_reading nanoseconds(clockid_t id) {
    timespec now{};
    if (clock_gettime(id, &now) != 0)
        return {};
    return std::int64_t{now.tv_sec} * nanoseconds_per_second + now.tv_nsec;
}

clock_reading ticks(clockid_t id) {
    const auto now = nanoseconds(id);
    return now ? clock_reading(*now / nanoseconds_per_tick) : clock_reading();
}

} // namespace

clock_reading system_performance_counter() {
    return nanoseconds(CLOCK_MONOTONIC);
}

clock_reading system_performance_frequency() {
    return nanoseconds_per_second;
}

clock_reading system_unbiased_time() {
    return ticks(CLOCK_MONOTONIC);
}

clock_reading system_coarse_unbiased_time() {
    return ticks(CLOCK_MONOTONIC_COARSE);
}

clock_reading system_time() {
    const auto now = nanoseconds(CLOCK_REALTIME);
    return now ? clock_reading(*now / nanoseconds_per_tick + unix_epoch) : clock_reading();
}

clock_reading system_thread_cycles() {
    return nanoseconds(CLOCK_THREAD_CPUTIME_ID);
}

clock_reading system_thread_cycle_rate() {
    return nanoseconds_per_second;
}

} // namespace zel::platform
