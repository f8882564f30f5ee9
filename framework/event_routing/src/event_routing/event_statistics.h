// How many events were broadcast, and on which paths.
//
// A period ends with its 1000th broadcast, or with the first one after an hour; it
// is then reported to the log and another begins. Nothing is reported while nobody
// broadcasts.
#pragma once

#include <tasklib/unbiased_clock.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing::impl {

/// One period.
struct statistics_data_t {
    struct path_count {
        std::shared_ptr<const std::string> path; ///< as BroadcastEvent was given it
        std::uint32_t count;
    };

    tasklib::unbiased_clock::time_point start = tasklib::unbiased_clock::now();
    tasklib::unbiased_clock::time_point deadline = start + std::chrono::hours(1);
    /// A path may stand here several times; the report adds them up.
    std::vector<path_count> path_counts;
    std::uint32_t total_count = 0;
};

std::string report_of(const statistics_data_t& period);

/// Logs the report. What the log throws reaches the caller.
void WriteStatistics(const statistics_data_t& period);

} // namespace zel::event_routing::impl
