// What the broadcasts of one service share: the lists of handlers that their texts have
// matched, the counts of the statistics, and who is under way.
//
// All three have one guard, which a broadcast enters twice: to find its handlers and to
// count itself. It is held for a few instructions; what takes longer is done outside of it.
#pragma once

#include "framework/event_routing/src/event_routing/events/broadcasts_under_way.h"
#include "framework/event_routing/src/event_routing/events/period_counts.h"
#include "framework/event_routing/src/event_routing/events/remembered_lists.h"

#include <platform/critical_section.h>
#include <platform/process_barrier.h>

#include <memory>

namespace zel::event_routing::impl {

/// Any thread may call any operation.
class broadcast_records {
public:
    using registered_handler = broadcast_under_way::registered_handler;

    broadcast_records() { platform::prepare_heavy_barrier(); }

    /// What is remembered for this generation, or null. Stays until the broadcast is counted.
    /// The first call of a broadcast, and only once.
    const remembered_list* recall(broadcast_under_way& broadcast,
                                  std::uint64_t generation) noexcept;

    /// The broadcast keeps the list, and others may find it from now on.
    void remember(broadcast_under_way& broadcast,
                  std::shared_ptr<const remembered_list> list) noexcept;

    /// Only keeps it.
    void keep(broadcast_under_way& broadcast, std::shared_ptr<const remembered_list> list) noexcept;

    /// Ends a broadcast and counts it. The period if it ended with this broadcast, else
    /// null; the caller writes its report and hands it back. Throws when memory is short: the
    /// broadcast has ended, but is not counted, or the period goes on.
    std::unique_ptr<statistics_data_t> UpdateStatistics(broadcast_under_way& broadcast);
    void hand_back(std::unique_ptr<statistics_data_t> reported) noexcept;

    /// Counts, in the handler, the broadcasts that are inside of it. It is retired: none
    /// begins a call any more.
    void count_uses(registered_handler& removed) noexcept;

    /// Whether a broadcast of the calling thread is inside of the handler.
    bool is_inside(const registered_handler& handler) const noexcept;

    /// For the end of the service.
    std::unique_ptr<statistics_data_t> take_period();

private:
    friend class announced_call;

    void end_use(broadcast_under_way& broadcast, registered_handler& used) noexcept;
    bool may_be_announced_elsewhere(const registered_handler& handler) const noexcept;
    // Reads the lists without the guard; table_grows_ keeps others from changing them.
    void enlarge_table() noexcept ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis);

    // Guards everything below. What every broadcast writes lies beside it, in one line of the
    // processor's cache.
    alignas(64) mutable platform::brief_lock guard_;
    broadcasts_under_way under_way_ ZEL_GUARDED_BY(guard_);
    period_counts counts_ ZEL_GUARDED_BY(guard_);
    remembered_lists lists_ ZEL_GUARDED_BY(guard_);
    // A thread makes a larger table: nobody else changes the lists meanwhile.
    bool table_grows_ ZEL_GUARDED_BY(guard_) = false;
};

/// A broadcast's use of a handler, for as long as it lives. Dropping the handler's cookie
/// does not wait for it.
class announced_call {
public:
    announced_call(broadcast_records& records, broadcast_under_way& broadcast,
                   broadcast_records::registered_handler& handler) noexcept
        : records_(records), broadcast_(broadcast), handler_(handler) {
        broadcast_.inside_.store(&handler, std::memory_order_release);
        platform::light_barrier();
        may_run_ = !handler.is_retired();
    }
    ~announced_call() {
        broadcast_.inside_.store(nullptr, std::memory_order_release);
        platform::light_barrier();
        if (handler_.is_retired())
            records_.end_use(broadcast_, handler_);
    }
    announced_call(const announced_call&) = delete;
    announced_call& operator=(const announced_call&) = delete;

    /// False when the handler was retired before.
    explicit operator bool() const noexcept { return may_run_; }
    const event_routing_node::handler_body* operator->() const noexcept {
        return &handler_.callable();
    }

private:
    broadcast_records& records_;
    broadcast_under_way& broadcast_;
    broadcast_records::registered_handler& handler_;
    bool may_run_;
};

} // namespace zel::event_routing::impl
