#include "framework/event_routing/src/event_routing/events/event_statistics.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <utility>

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

void statistics_data_t::add_paths(std::string_view paths, std::uint32_t count) {
    if (!path_counts.empty() && text_of(path_counts.back()) == paths) {
        path_counts.back().count += count;
        return;
    }
    if (texts.size() + paths.size() > room_for_texts)
        add_equal_texts_up();
    const std::size_t begin = texts.size();
    texts.append(paths);
    path_counts.push_back({begin, paths.size(), count});
}

// So a period takes no more memory than about twice its different texts.
void statistics_data_t::add_equal_texts_up() {
    std::string rest;
    std::vector<path_count> added_up;
    for (const auto& [text, count] : sums()) {
        added_up.push_back({rest.size(), text.size(), count});
        rest += text;
    }
    texts = std::move(rest);
    path_counts = std::move(added_up);
    room_for_texts = std::max(room_for_texts, 2 * texts.size());
}

std::map<std::string_view, std::uint32_t> statistics_data_t::sums() const {
    std::map<std::string_view, std::uint32_t> counts;
    for (const auto& counted : path_counts)
        counts[text_of(counted)] += counted.count;
    return counts;
}

std::string report_of(const statistics_data_t& period) {
    const auto counts = period.sums();
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
