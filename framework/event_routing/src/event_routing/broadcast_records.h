// What a service remembers of the paths that are broadcast: how often that was in
// this period, and which handlers they match.
//
// A broadcast enters the guard twice, to find its handlers and to count itself. In
// between it uses the list without owning a reference: counting users under the guard
// spares two atomic operations on a word that all threads would write.
#pragma once

#include "framework/event_routing/src/event_routing/event_statistics.h"
#include "framework/event_routing/src/event_routing/match_list.h"

#include <platform/critical_section.h>

#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing::impl {

/// Any thread may call any operation.
class broadcast_records {
public:
    broadcast_records();

    /// One broadcast in the eyes of the records. The text must outlive it.
    class visitor {
    public:
        explicit visitor(const std::string& paths) noexcept : paths_(paths) {}

        const text_key& paths() const noexcept { return paths_; }

    private:
        friend class broadcast_records;
        const text_key paths_;
        const match_list* used_ = nullptr;      // which it recalled
        std::shared_ptr<const match_list> own_; // which it made
    };

    /// What was remembered for this generation, or null. Stays until the visitor
    /// is counted.
    const match_list* recall(visitor& broadcast, std::uint64_t generation);

    /// Remembers a list for others, perhaps. The visitor keeps it in any case.
    void remember(visitor& broadcast, std::shared_ptr<const match_list> matches);

    /// Ends a visit and counts it. The period if it ended with this broadcast, else
    /// null; the caller writes its report.
    std::unique_ptr<const statistics_data_t> UpdateStatistics(visitor& broadcast);

    /// For the end of the service.
    std::unique_ptr<const statistics_data_t> take_period();

private:
    void detach(const std::shared_ptr<const match_list>& matches) noexcept ZEL_REQUIRES(guard_);
    void count(const visitor& broadcast) ZEL_REQUIRES(guard_);
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

    match_table<match_list> lists_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
