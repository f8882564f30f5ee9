#include <platform/clocks.h>

#include <chrono>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
using zel::platform::clock; // not that of <ctime>
namespace chrono = std::chrono;

std::optional<std::int64_t> fixed() {
    return 42;
}
std::optional<std::int64_t> not_there() {
    return std::nullopt;
}

TEST(Clocks, CanBeReplacedOneByOneAndComeBackMonotonic) {
    for (int i = 0; i < 6; ++i) {
        const auto which = static_cast<clock>(i);
        const auto real = read_clock(which);
        ASSERT_TRUE(real);
        {
            const clock_replacement outer(which, &not_there);
            {
                const clock_replacement inner(which, &fixed);
                for (int other = 0; other < 6; ++other)
                    EXPECT_EQ(read_clock(static_cast<clock>(other)) == 42, other == i);
            }
            EXPECT_EQ(read_clock(which), std::nullopt);
        }
        EXPECT_GE(read_clock(which), real);
    }
}

// A reading, as a time since the epoch, lies between two of the standard library's clock.
template <class Standard>
void expect_between(clock which, std::int64_t rate, chrono::seconds epoch = {}) {
    const auto before = Standard::now().time_since_epoch() - chrono::microseconds(1);
    const std::int64_t ticks = read_clock(which).value() + epoch.count() * rate;
    const auto after = Standard::now().time_since_epoch();
    EXPECT_GE(chrono::nanoseconds(ticks * (std::nano::den / rate)), before);
    EXPECT_LE(chrono::nanoseconds(ticks * (std::nano::den / rate)), after);
}

TEST(Clocks, CountInTheirUnitsFromTheirEpochs) {
    using namespace chrono;
    constexpr std::int64_t ticks_of_100_ns = 10'000'000;
    expect_between<steady_clock>(clock::unbiased_time, ticks_of_100_ns);
    expect_between<steady_clock>(clock::performance_counter,
                                 read_clock(clock::performance_frequency).value());
    expect_between<system_clock>(clock::system_time, ticks_of_100_ns,
                                 sys_days(1601y / 1 / 1) - sys_days(1970y / 1 / 1));
    // Its time is this thread's own, so it cannot run ahead of the wall clock.
    const auto start = steady_clock::now();
    const auto begin = read_clock(clock::thread_cycles).value();
    const auto rate = read_clock(clock::thread_cycle_rate).value();
    while (read_clock(clock::thread_cycles).value() - begin < rate / 100) {
    }
    EXPECT_GE(steady_clock::now() - start, milliseconds(9));
}

} // namespace
