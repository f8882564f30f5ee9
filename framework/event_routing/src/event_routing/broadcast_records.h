// What a service remembers of the paths that are broadcast: how often that was in
// this period, and which handlers they match.
//
// There is one record for each text that BroadcastEvent was given, up to a bound;
// beyond it a path is matched anew each time. What a record says of handlers holds
// for one generation of the registrations; a generation ends with every change.
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
    struct record;

public:
    /// A text of paths with what is worth computing once. The text must outlive it.
    class name {
    public:
        explicit name(const std::string& paths) noexcept
            : text_(paths), hash_(std::hash<std::string_view>()(paths)) {}

    private:
        friend class broadcast_records;
        std::string_view text_;
        std::size_t hash_;
        // Where the record was, true as long as none has been dropped since.
        record* record_ = nullptr;
        std::uint64_t drops_ = 0;
    };

    /// What was remembered for this generation, or null.
    std::shared_ptr<const match_list> recall(name& paths, std::uint64_t generation);

    /// Remembers it for others; not every path when there are too many.
    void remember(name& paths, std::uint64_t generation, std::shared_ptr<const match_list> matches);

    /// Counts a broadcast. The period if it ended with this one, else null; the
    /// caller writes its report.
    std::unique_ptr<const statistics_data_t> UpdateStatistics(const name& paths);

    /// For the end of the service.
    const statistics_data_t& current_period() const noexcept
        ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        return *period_;
    }

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
        std::shared_ptr<const std::string> paths; // to which the key refers
        std::size_t hash = 0;
        std::uint64_t generation = 0;
        std::shared_ptr<const match_list> matches;
        std::uint64_t period = 0; // in which it was counted last, and where
        std::size_t place_in_period = 0;
        record* next_arrival = nullptr;
    };
    using table = std::unordered_map<key, record, known_hash>;

    record* find(const name& paths) ZEL_REQUIRES(guard_);
    record* add(const name& paths) ZEL_REQUIRES(guard_);
    void count(const name& paths) ZEL_REQUIRES(guard_);

    // Guards everything below; held for a look-up or an addition.
    platform::plain_lock guard_;
    table records_ ZEL_GUARDED_BY(guard_);
    std::uint64_t drops_ ZEL_GUARDED_BY(guard_) = 0;    // of records, so far
    std::uint64_t refusals_ ZEL_GUARDED_BY(guard_) = 0; // for want of room
    record* oldest_ ZEL_GUARDED_BY(guard_) = nullptr;   // of the records by arrival
    record* newest_ ZEL_GUARDED_BY(guard_) = nullptr;
    std::uint64_t period_number_ ZEL_GUARDED_BY(guard_) = 1;
    std::unique_ptr<statistics_data_t>
        period_ ZEL_GUARDED_BY(guard_) = std::make_unique<statistics_data_t>();
};

} // namespace zel::event_routing::impl
