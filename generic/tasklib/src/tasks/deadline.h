// One moment for all waits that make up a longer one.
#pragma once

#include <framework/threading/universal_timeout.h>
#include <tasklib/unbiased_clock.h>

#include <algorithm>

namespace zel::tasklib {

class deadline {
public:
    explicit deadline(threading::universal_timeout from_now) noexcept
        : infinite_(from_now.infinite), moment_(later(unbiased_clock::now(), from_now)) {}

    /// The last there is for no limit, and where the clock does not go further.
    unbiased_clock::time_point moment() const noexcept { return moment_; }

    threading::universal_timeout time_left() const noexcept {
        if (infinite_)
            return {};
        const auto left = std::chrono::ceil<std::chrono::microseconds>(
            std::max(moment_ - unbiased_clock::now(), unbiased_clock::duration::zero()));
        return {false, left.count()};
    }

private:
    static unbiased_clock::time_point later(unbiased_clock::time_point from,
                                            threading::universal_timeout by) noexcept {
        constexpr std::int64_t ticks_per_microsecond = 10;
        constexpr auto last = unbiased_clock::time_point::max();
        if (by.infinite || by.microseconds > (last - from).count() / ticks_per_microsecond)
            return last;
        return from + unbiased_clock::duration(std::max<std::int64_t>(by.microseconds, 0) *
                                               ticks_per_microsecond);
    }

    bool infinite_;
    unbiased_clock::time_point moment_;
};

} // namespace zel::tasklib
