// The clock that delays are measured with: it stands still while the machine
// sleeps, and nobody sets it.
#pragma once

#include <platform/clocks.h>

#include <chrono>

namespace zel::tasklib {

struct unbiased_clock {
    using rep = std::int64_t;
    using period = std::ratio<1, 10'000'000>; // ticks of 100 ns
    using duration = std::chrono::duration<rep, period>;
    using time_point = std::chrono::time_point<unbiased_clock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept {
        if (const auto ticks = platform::read_clock(platform::clock::unbiased_time))
            return time_point(duration(*ticks));
        return from_performance_counter();
    }

private:
    static time_point from_performance_counter() noexcept {
        const auto counter = platform::read_clock(platform::clock::performance_counter);
        const auto rate = platform::read_clock(platform::clock::performance_frequency);
        if (!counter || !rate || *rate <= 0)
            return {};
        // Whole seconds are converted by themselves: the product of the whole counter would
        // overflow within a day.
        return time_point(
            duration(*counter / *rate * period::den + *counter % *rate * period::den / *rate));
    }
};

} // namespace zel::tasklib
