// How many events were broadcast, and on which paths.
//
// A period ends with its 1000th broadcast, or with the first one after an hour; it
// is then reported to the log and another begins. Nothing is reported while nobody
// broadcasts.
#pragma once

#include <tasklib/unbiased_clock.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::impl {

/// One period.
struct statistics_data_t {
    struct path_count {
        std::size_t begin; ///< in the texts
        std::size_t length;
        std::uint32_t count;
    };

    tasklib::unbiased_clock::time_point start = tasklib::unbiased_clock::now();
    tasklib::unbiased_clock::time_point deadline = start + std::chrono::hours(1);
    /// A path may stand here several times; the report adds them up.
    std::vector<path_count> path_counts;
    /// The paths as BroadcastEvent was given them, in one row: a new one costs a copy and
    /// as a rule no allocation.
    std::string texts;
    std::uint32_t total_count = 0;

    /// A path that was broadcast once. When memory is short, nothing is added.
    void add_path(std::string_view path) {
        texts.append(path);
        path_counts.push_back({texts.size() - path.size(), path.size(), 1});
    }
};

std::string report_of(const statistics_data_t& period);

/// Logs the report. What the log throws reaches the caller.
void WriteStatistics(const statistics_data_t& period);

} // namespace zel::event_routing::impl
