// Counts the broadcasts of one service, and on which paths they were.
//
// The period ends with exactly its 1000th broadcast, on whatever threads they are. So that
// each of them need not write a count that all share, a thread is given a credit: that many
// broadcasts it counts by itself, in a word that others write only to take it back. A thread
// whose credit is used up, or was taken back because another thread needs some, goes to the
// guard for more.
// The credits that threads have left and what nobody was given yet add up to what is missing
// of the period.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_statistics.h"
#include "framework/event_routing/src/event_routing/routing/thread_records.h"

#include <platform/critical_section.h>

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

namespace zel::event_routing::impl {

class thread_counts;

/// Of a broadcast that a thread has tried to count by itself.
enum class count_outcome { counted, credit_used_up, no_credit, no_room };

/// Any thread may call any operation.
class broadcast_statistics {
public:
    explicit broadcast_statistics(thread_records& threads);
    /// No broadcast is under way.
    ~broadcast_statistics();
    broadcast_statistics(const broadcast_statistics&) = delete;
    broadcast_statistics& operator=(const broadcast_statistics&) = delete;

    /// Counts a broadcast; `own` is the record of this thread or null. The period if it
    /// ended with this broadcast, else null; the caller writes its report.
    std::unique_ptr<const statistics_data_t> UpdateStatistics(thread_record* own,
                                                              std::string_view paths);

    /// For the end of the service.
    std::unique_ptr<const statistics_data_t> take_period();

private:
    friend class thread_counts;

    thread_counts* add_counts(thread_record& own);
    tasklib::unbiased_clock::time_point deadline() const noexcept;
    std::unique_ptr<const statistics_data_t> settle(thread_counts* own, count_outcome result,
                                                    std::string_view paths, bool is_late);
    bool is_period_full() ZEL_REQUIRES(guard_);
    void give_credit(thread_counts& own) noexcept ZEL_REQUIRES(guard_);
    void take_counts(thread_counts& from) noexcept ZEL_REQUIRES(guard_);
    void add_paths(std::string_view paths, std::uint32_t count) noexcept ZEL_REQUIRES(guard_);
    std::unique_ptr<const statistics_data_t> end_period() ZEL_REQUIRES(guard_);

    thread_records& threads_;
    // When the period ends by time, in ticks. Relaxed: who reads the one before looks again
    // under the guard.
    std::atomic<std::int64_t> deadline_;

    // Guards the rest, and of each thread's counts what is said there; held when a credit is
    // used up, or a thread has counted more texts than it has room for.
    platform::plain_lock guard_;
    std::unique_ptr<statistics_data_t> period_ ZEL_GUARDED_BY(guard_);
    std::uint32_t spare_credit_ ZEL_GUARDED_BY(guard_); // of the period; nobody was given it
    std::vector<thread_counts*> counting_ ZEL_GUARDED_BY(guard_);
    // How many threads were given credit in this period, and in the last one. Others have
    // not broadcast for long.
    std::uint32_t credited_threads_ ZEL_GUARDED_BY(guard_) = 0;
    std::uint32_t formerly_credited_ ZEL_GUARDED_BY(guard_) = 0;
    std::uint64_t period_number_ ZEL_GUARDED_BY(guard_) = 1;
};

} // namespace zel::event_routing::impl
