#include <platform/clocks.h>

#include <chrono>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
using zel::platform::clock; // not that of <ctime>

TEST(Clocks, CountInTheirUnitsFromTheirEpochsUnlessReplaced) {
    using namespace std::chrono;
    const auto in_seconds = [](clock which, std::int64_t rate) {
        return seconds(*read_clock(which) / rate);
    };
    const auto rate = *read_clock(clock::performance_frequency);
    const auto awake = in_seconds(clock::performance_counter, rate);
    EXPECT_LT(abs(awake - steady_clock::now().time_since_epoch()), seconds(5));
    EXPECT_LT(abs(awake - in_seconds(clock::unbiased_time, 10'000'000)), seconds(5));
    EXPECT_TRUE(*read_clock(clock::thread_cycles) > 0 && *read_clock(clock::thread_cycle_rate) > 0);

    const clock_replacement stopped(clock::performance_counter, [] { return clock_reading(42); });
    EXPECT_EQ(*read_clock(clock::performance_counter), 42);
    const auto since_1601 = floor<seconds>(system_clock::now()) - sys_days(1601y / 1 / 1);
    EXPECT_LT(abs(since_1601 - in_seconds(clock::system_time, 10'000'000)), seconds(5));
}

} // namespace
