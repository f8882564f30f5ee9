// What a service remembers of the paths that are broadcast: how often that was in
// this period, and which handlers they match.
//
// There is one list of matches for each text that BroadcastEvent was given, up to a
// bound; beyond it a path is matched anew each time. A list holds for one generation
// of the registrations; a generation ends with every change.
//
// A broadcast enters the guard twice, to find its handlers and to count itself. In
// between it uses the list without owning a reference: counting users under the guard
// spares two atomic operations on a word that all threads would write.
#pragma once

#include "framework/event_routing/src/event_routing/event_statistics.h"
#include "framework/event_routing/src/event_routing/match_list.h"

#include <platform/critical_section.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::event_routing::impl {

/// Any thread may call any operation.
class broadcast_records {
public:
    broadcast_records();

    /// One broadcast in the eyes of the records. The text must outlive it.
    class visitor {
    public:
        explicit visitor(const std::string& paths) noexcept
            : text_(paths), hash_(std::hash<std::string_view>()(paths)) {}

    private:
        friend class broadcast_records;
        const std::string_view text_;
        const std::size_t hash_;
        const match_list* used_ = nullptr;
    };

    /// What was remembered for this generation, or null. Stays until the visitor
    /// is counted.
    const match_list* recall(visitor& broadcast, std::uint64_t generation);

    /// Remembers a list for others; not every one when there are too many.
    void remember(const visitor& broadcast, std::uint64_t generation,
                  std::shared_ptr<const match_list> matches);

    /// Ends a visit and counts it. The period if it ended with this broadcast, else
    /// null; the caller writes its report.
    std::unique_ptr<const statistics_data_t> UpdateStatistics(visitor& broadcast);

    /// For the end of the service.
    std::unique_ptr<const statistics_data_t> take_period();

private:
    struct key {
        std::string_view text;
        std::size_t hash;
        bool operator==(const key& other) const noexcept {
            return hash == other.hash && text == other.text;
        }
    };
    struct known_hash {
        std::size_t operator()(const key& k) const noexcept { return k.hash; }
    };
    struct record {
        std::shared_ptr<const match_list> matches; // its text is what the key refers to
        record* next_arrival = nullptr;
    };
    using table = std::unordered_map<key, record, known_hash>;

    record* find(const visitor& broadcast) ZEL_REQUIRES(guard_);
    record* add(const visitor& broadcast, const std::string& text) ZEL_REQUIRES(guard_);
    std::shared_ptr<const match_list> detach(record& from) noexcept ZEL_REQUIRES(guard_);
    void count(const match_list* counted, const visitor& broadcast) ZEL_REQUIRES(guard_);
    std::unique_ptr<statistics_data_t> end_period() ZEL_REQUIRES(guard_);

    // Guards everything below; held for a look-up or an addition. What every broadcast
    // writes lies beside it, in one line of the processor's cache.
    alignas(64) platform::plain_lock guard_;
    std::uint32_t total_count_ ZEL_GUARDED_BY(guard_) = 0; // of the period, like the rest
    std::uint64_t period_number_ ZEL_GUARDED_BY(guard_) = 1;
    tasklib::unbiased_clock::time_point deadline_ ZEL_GUARDED_BY(guard_);
    std::unique_ptr<statistics_data_t> period_ ZEL_GUARDED_BY(guard_);
    // Where the counts of the period still are: in a list, or null when they were
    // written down.
    std::vector<const match_list*> counted_ ZEL_GUARDED_BY(guard_);

    table records_ ZEL_GUARDED_BY(guard_);
    record* oldest_ ZEL_GUARDED_BY(guard_) = nullptr; // of the records by arrival
    record* newest_ ZEL_GUARDED_BY(guard_) = nullptr;
    std::uint64_t refusals_ ZEL_GUARDED_BY(guard_) = 0; // for want of room, so far
};

} // namespace zel::event_routing::impl
