// How many events were broadcast, and on which paths.
//
// A period ends with its 1000th broadcast, or with the first one after an hour; it
// is then reported to the log and another begins. Nothing is reported while nobody
// broadcasts.
#pragma once

#include <tasklib/unbiased_clock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::impl {

/// One period.
struct statistics_data_t {
    using time_point = tasklib::unbiased_clock::time_point;

    struct path_count {
        std::size_t begin; ///< in the texts
        std::size_t length;
        std::uint32_t count;
    };

    time_point start = tasklib::unbiased_clock::now();
    time_point deadline = an_hour_after(start);
    /// A path may stand here several times.
    std::vector<path_count> path_counts;
    /// The paths as BroadcastEvent was given them, in one row: a new one costs a copy and
    /// as a rule no allocation.
    std::string texts;
    /// When the texts are longer than this, equal ones are added up. A thousand usual paths
    /// stay below.
    std::size_t room_for_texts = 262'144;
    std::uint32_t total_count = 0;

    /// Counts so many broadcasts on these paths; the total is the caller's. Throws
    /// std::bad_alloc, and then counts none.
    void add_paths(std::string_view paths, std::uint32_t count);
    /// Of each path, sorted by the paths, which refer to the texts.
    std::map<std::string_view, std::uint32_t> sums() const;

    /// The last moment there is where the clock does not go further.
    static time_point an_hour_after(time_point moment) noexcept {
        constexpr std::chrono::hours hour(1);
        return std::min(moment, time_point::max() - hour) + hour;
    }

    std::string_view text_of(const path_count& counted) const {
        return std::string_view(texts).substr(counted.begin, counted.length);
    }

private:
    void add_equal_texts_up();
};

std::string report_of(const statistics_data_t& period);

/// Logs the report. What the log throws reaches the caller.
void WriteStatistics(const statistics_data_t& period);

} // namespace zel::event_routing::impl
