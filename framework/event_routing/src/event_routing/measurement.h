// How long something took, for monitors.
#pragma once

#include <platform/clocks.h>

#include <cstdint>
#include <optional>

namespace zel::event_routing::impl {

struct measured_times {
    double cpu_time;     ///< seconds of the calling thread, NaN when not known
    double elapsed_time; ///< seconds, NaN when not known
};

/// Begins when it is made, on the thread whose work it measures. The reading of the
/// thread's time is a system call: make one only where somebody will see the times.
class measurement {
public:
    measurement() noexcept;
    measured_times end() const noexcept;

private:
    using reading = std::optional<std::int64_t>;

    // The wall clock is outermost: what the other reading takes counts as elapsed,
    // never the other way round.
    const reading counter_;
    const reading thread_cycles_;
};

} // namespace zel::event_routing::impl
