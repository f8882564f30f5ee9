// What was sent while somebody watched: how much, by what path, and how long handlers took.
//
// Any thread may count and look. The number of handlers and paths that are told apart is
// bounded, so that a watcher can stay for days: what comes later is summed up under one name.
#pragma once

#include <platform/critical_section.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace inspect {

struct message_counts {
    std::uint64_t messages = 0;
    std::uint64_t failures = 0; ///< an exception reached the sender
};

struct handler_times {
    std::string service;
    std::string handler; ///< its description, of events with "Sync: " or "Async: " before
    std::int32_t level = 0;
    std::uint64_t calls = 0;
    /// In seconds by the clock; of the calls whose time is known.
    double total = 0;
    double longest = 0;
    std::uint64_t timed_calls = 0;

    double mean() const { return timed_calls == 0 ? 0 : total / static_cast<double>(timed_calls); }
};

struct path_count {
    std::string service;
    std::string path;
    std::uint64_t messages = 0;
};

class traffic {
public:
    /// Names a service that is to be reported also while nothing is sent.
    void expect(const std::string& service);
    void count_message(const std::string& service, const std::string& path, bool failed);
    /// `seconds` may be NaN for a time that is not known.
    void count_call(const std::string& service, std::int32_t level, const std::string& handler,
                    double seconds);

    std::map<std::string, message_counts> services() const;
    /// Those with the longest calls, longest first.
    std::vector<handler_times> slowest(std::size_t most) const;
    /// Those with the most messages, busiest first.
    std::vector<path_count> busiest(std::size_t most) const;

private:
    using handler_key = std::pair<std::string, std::string>; // service, description

    // Guards all counts, between the threads that route and the one that reports.
    mutable zel::platform::critical_section guard_;
    std::map<std::string, message_counts> services_ ZEL_GUARDED_BY(guard_);
    std::map<std::pair<handler_key, std::int32_t>, handler_times> handlers_ ZEL_GUARDED_BY(guard_);
    std::map<std::pair<std::string, std::string>, std::uint64_t> paths_ ZEL_GUARDED_BY(guard_);
};

} // namespace inspect
