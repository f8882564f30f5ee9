// How long something took, for monitors.
#pragma once

#include <event_routing/handler_record.h>
#include <platform/clocks.h>

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

    template <class Info>
    void end_into(Info& info) const noexcept {
        const auto times = end();
        info.cpu_time = times.cpu_time;
        info.elapsed_time = times.elapsed_time;
    }

private:
    // The wall clock is outermost: what the other reading takes counts as elapsed,
    // never the other way round.
    const platform::clock_reading counter_;
    const platform::clock_reading thread_cycles_;
};

/// Writes the times of a call into its record, also when the call throws.
class measured_call {
public:
    explicit measured_call(monitor::handler_record& record) noexcept : record_(record) {}
    ~measured_call() { begin_.end_into(record_); }
    measured_call(const measured_call&) = delete;
    measured_call& operator=(const measured_call&) = delete;

private:
    monitor::handler_record& record_;
    const measurement begin_;
};

} // namespace zel::event_routing::impl
