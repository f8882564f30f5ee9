// How many events were broadcast, and on which paths.
//
// A period ends with its 1000th broadcast, or with the first one after an hour; it
// is then reported to the log and another begins. Nothing is reported while nobody
// broadcasts.
#pragma once

#include "generic/tasklib/src/tasks/deadline.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::impl {

inline constexpr threading::universal_timeout an_hour{false, 3'600'000'000};

/// One period.
struct statistics_data_t {
    struct path_count {
        std::size_t begin; ///< in the texts
        std::size_t length;
        std::uint32_t count;
    };

    tasklib::unbiased_clock::time_point start = tasklib::unbiased_clock::now();
    tasklib::unbiased_clock::time_point deadline = tasklib::deadline(an_hour).moment();
    /// A path may stand here several times; the report adds them up.
    std::vector<path_count> path_counts;
    /// The paths as BroadcastEvent was given them, in one row: a new one costs a copy and
    /// as a rule no allocation.
    std::string texts;
    std::uint32_t total_count = 0;

    std::string_view text_of(const path_count& counted) const {
        return std::string_view(texts).substr(counted.begin, counted.length);
    }
    /// A path that was broadcast once; several times in a row it takes one place. When
    /// memory is short, it is not counted.
    void add_path(std::string_view path) {
        if (!path_counts.empty() && path == text_of(path_counts.back())) {
            ++path_counts.back().count;
            return;
        }
        texts.append(path);
        path_counts.push_back({texts.size() - path.size(), path.size(), 1});
    }
};

std::string report_of(const statistics_data_t& period);

/// Logs the report. What the log throws reaches the caller.
void WriteStatistics(const statistics_data_t& period);

} // namespace zel::event_routing::impl
