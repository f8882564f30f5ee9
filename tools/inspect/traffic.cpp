#include "tools/inspect/traffic.h"

#include <algorithm>
#include <cmath>

namespace inspect {

namespace {

constexpr std::size_t most_names = 10'000; // about 2 MB of each kind

// The entry of the key; in a table that is full, the one entry that takes all the rest.
template <class Table, class Key>
auto& entry_of(Table& table, Key key, Key rest) {
    if (table.size() >= most_names && !table.contains(key))
        key = std::move(rest);
    return table[std::move(key)];
}

template <class Entry, class Order>
std::vector<Entry> first_of(std::vector<Entry> all, std::size_t most, Order order) {
    std::stable_sort(all.begin(), all.end(), order);
    if (all.size() > most)
        all.resize(most);
    return all;
}

} // namespace

void traffic::expect(const std::string& service) {
    zel::platform::scoped_lock inside(guard_);
    services_.try_emplace(service);
}

void traffic::count_message(const std::string& service, const std::string& path, bool failed) {
    zel::platform::scoped_lock inside(guard_);
    message_counts& counts = services_[service];
    ++counts.messages;
    counts.failures += failed;
    ++entry_of(paths_, std::pair(service, path), std::pair(service, std::string("(other paths)")));
}

void traffic::count_call(const std::string& service, std::int32_t level, const std::string& handler,
                         double seconds) {
    zel::platform::scoped_lock inside(guard_);
    handler_times& times = entry_of(handlers_, std::pair(handler_key(service, handler), level),
                                    std::pair(handler_key(service, "(other handlers)"), 0));
    ++times.calls;
    if (std::isnan(seconds))
        return;
    ++times.timed_calls;
    times.total += seconds;
    times.longest = std::max(times.longest, seconds);
}

std::map<std::string, message_counts> traffic::services() const {
    zel::platform::scoped_lock inside(guard_);
    return services_;
}

std::vector<handler_times> traffic::slowest(std::size_t most) const {
    std::vector<handler_times> all;
    {
        zel::platform::scoped_lock inside(guard_);
        for (const auto& [key, times] : handlers_) {
            handler_times& entry = all.emplace_back(times);
            entry.service = key.first.first;
            entry.handler = key.first.second;
            entry.level = key.second;
        }
    }
    return first_of(std::move(all), most,
                    [](const auto& a, const auto& b) { return a.longest > b.longest; });
}

std::vector<path_count> traffic::busiest(std::size_t most) const {
    std::vector<path_count> all;
    {
        zel::platform::scoped_lock inside(guard_);
        for (const auto& [key, messages] : paths_)
            all.push_back({key.first, key.second, messages});
    }
    return first_of(std::move(all), most,
                    [](const auto& a, const auto& b) { return a.messages > b.messages; });
}

} // namespace inspect
