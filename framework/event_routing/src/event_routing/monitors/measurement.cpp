#include "framework/event_routing/src/event_routing/monitors/measurement.h"

#include <limits>

namespace zel::event_routing::impl {

namespace {

using platform::clock;
using platform::clock_reading;
using platform::read_clock;

double seconds(clock_reading begin, clock_reading end, clock_reading rate) noexcept {
    if (!begin || !end || !rate || *rate <= 0)
        return std::numeric_limits<double>::quiet_NaN();
    return static_cast<double>(*end - *begin) / static_cast<double>(*rate);
}

} // namespace

measurement::measurement() noexcept
    : counter_(read_clock(clock::performance_counter)),
      thread_cycles_(read_clock(clock::thread_cycles)) {}

measured_times measurement::end() const noexcept {
    const auto cycles = read_clock(clock::thread_cycles);
    const auto counter = read_clock(clock::performance_counter);
    return {seconds(thread_cycles_, cycles, read_clock(clock::thread_cycle_rate)),
            seconds(counter_, counter, read_clock(clock::performance_frequency))};
}

} // namespace zel::event_routing::impl
