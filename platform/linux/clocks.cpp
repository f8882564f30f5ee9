#include "platform/src/system_clocks.h"

#include <ctime>

namespace zel::platform {

namespace {

constexpr std::int64_t nanoseconds_per_second = 1'000'000'000;
constexpr std::int64_t nanoseconds_per_tick = 100;
// From 1601-01-01 to 1970-01-01 in 100 ns ticks.
constexpr std::int64_t unix_epoch = 116'444'736'000'000'000;

std::optional<std::int64_t> nanoseconds(clockid_t id) {
    timespec now{};
    if (clock_gettime(id, &now) != 0)
        return std::nullopt;
    return std::int64_t{now.tv_sec} * nanoseconds_per_second + now.tv_nsec;
}

std::optional<std::int64_t> ticks(clockid_t id) {
    const auto now = nanoseconds(id);
    return now ? std::optional(*now / nanoseconds_per_tick) : std::nullopt;
}

} // namespace

std::optional<std::int64_t> system_performance_counter() {
    return nanoseconds(CLOCK_MONOTONIC);
}

std::optional<std::int64_t> system_performance_frequency() {
    return nanoseconds_per_second;
}

std::optional<std::int64_t> system_unbiased_time() {
    return ticks(CLOCK_MONOTONIC);
}

std::optional<std::int64_t> system_coarse_unbiased_time() {
    return ticks(CLOCK_MONOTONIC_COARSE);
}

std::optional<std::int64_t> system_time() {
    const auto now = nanoseconds(CLOCK_REALTIME);
    return now ? std::optional(*now / nanoseconds_per_tick + unix_epoch) : std::nullopt;
}

std::optional<std::int64_t> system_thread_cycles() {
    return nanoseconds(CLOCK_THREAD_CPUTIME_ID);
}

std::optional<std::int64_t> system_thread_cycle_rate() {
    return nanoseconds_per_second;
}

} // namespace zel::platform
