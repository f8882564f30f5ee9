#include "tools/inspect/watch.h"

#include "framework/serialization/json_text.h"
#include "tools/inspect/monitors.h"
#include "tools/inspect/output.h"
#include "tools/inspect/report.h"
#include "tools/inspect/traffic.h"

#include <algorithm>
#include <chrono>

namespace inspect {

namespace {

using zel::platform::milliseconds;
using clock = std::chrono::steady_clock;

// The time until the next report: one interval, but not beyond the end.
milliseconds pause(const command_line& asked, clock::duration passed) {
    if (!asked.duration)
        return asked.interval;
    const auto left = std::chrono::ceil<milliseconds>(*asked.duration - passed);
    return std::clamp(left, milliseconds(0), asked.interval);
}

void show(const report& news, const command_line& asked, bool is_last) {
    constexpr const char* clear_screen = "\x1b[H\x1b[2J";
    if (asked.format == "json")
        print(zel::serialization::json_to_text(report_as_json(news)) + '\n');
    else if (is_for_a_person())
        print(clear_screen + rates_as_text(news) + tables_as_text(news));
    else
        print(rates_as_text(news) + (is_last ? tables_as_text(news) : ""));
}

} // namespace

void watch_traffic(const host& components, const command_line& asked,
                   zel::platform::event& interrupt) {
    traffic counts;
    monitors watching(components, counts);
    reporter reports(counts, asked.rows);
    const auto begin = clock::now();
    bool is_last = false;
    while (!is_last) {
        const bool interrupted = interrupt.wait(pause(asked, clock::now() - begin));
        const auto passed = clock::now() - begin;
        is_last = interrupted || (asked.duration && passed >= *asked.duration);
        watching.follow_channels();
        show(reports.next(std::chrono::duration<double>(passed).count()), asked, is_last);
    }
}

} // namespace inspect
