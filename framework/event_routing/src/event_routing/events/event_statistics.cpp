#include "framework/event_routing/src/event_routing/events/event_statistics.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <map>

namespace zel::event_routing::impl {

namespace {

constinit log::source_position
    statistics("event_routing/framework/event_routing/src/event_routing/event_statistics.cpp", 25);

constexpr std::size_t most_shown = 5;

// Minutes with one decimal; the others are cut off.
double minutes_since(tasklib::unbiased_clock::time_point start) {
    const auto elapsed = tasklib::unbiased_clock::now() - start;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    const auto tenths = seconds / 6;
    return static_cast<double>(tenths) / 10.0;
}

} // namespace

std::string report_of(const statistics_data_t& period) {
    std::map<std::string_view, std::uint32_t> counts;
    for (const auto& counted : period.path_counts)
        counts[period.text_of(counted)] += counted.count;
    std::vector<std::pair<std::string_view, std::uint32_t>> top(
        std::min(counts.size(), most_shown));
    // Among equal counts the earlier path, so that the same broadcasts make the same report.
    std::partial_sort_copy(
        counts.begin(), counts.end(), top.begin(), top.end(), [](const auto& a, const auto& b) {
            return a.second != b.second ? a.second > b.second : a.first < b.first;
        });
    // Formatted the same whatever the host's locale is.
    std::string text =
        fmt::format("Event routing statistic (in last {:g} minutes):\n"
                    "\tTotal event count: {}\n"
                    "\tPath count: {}\n"
                    "\tTop {} paths:",
                    minutes_since(period.start), period.total_count, counts.size(), top.size());
    for (const auto& [path, count] : top)
        fmt::format_to(std::back_inserter(text), "\n\t\t{:6}  {}", count, path);
    return text;
}

void WriteStatistics(const statistics_data_t& period) {
    routing_log.write(log::severity::statistics, statistics, [&] { return report_of(period); });
}

} // namespace zel::event_routing::impl
