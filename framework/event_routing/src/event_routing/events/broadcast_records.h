// What a service remembers of the paths that are broadcast: how often that was in
// this period, and which handlers they match.
//
// A broadcast enters the guard twice, to find its handlers and to count itself. In
// between it uses the list without owning a reference: counting users under the guard
// spares two atomic operations on a word that all threads would write.
//
// Likewise a broadcast does not count its calls in the handlers. It announces, in its
// own memory, inside which handler it is; a removal, which is rare, looks there.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_statistics.h"
#include "framework/event_routing/src/event_routing/events/match_list.h"

#include <platform/critical_section.h>
#include <platform/process_barrier.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace zel::event_routing::impl {

/// Any thread may call any operation.
class broadcast_records {
public:
    using registered_handler = event_routing_node::registered_handler;

    broadcast_records();

    /// One broadcast in the eyes of the records. The text must outlive it.
    class visitor {
    public:
        explicit visitor(const std::string& paths) noexcept : paths_(paths) {}
        visitor(const visitor&) = delete;
        visitor& operator=(const visitor&) = delete;

        const text_key& paths() const noexcept { return paths_; }

    private:
        friend class broadcast_records;
        friend class announced_call;

        const match_list* list() const noexcept { return own_ ? own_.get() : used_; }

        const text_key paths_;
        // Release, so that whoever finds the broadcast outside of a handler may destroy
        // what it has used there. The barriers of announced_call do the rest.
        std::atomic<const registered_handler*> inside_{nullptr};

        // Changed by its own thread, and all of them under the guard.
        const match_list* used_ = nullptr;      // which it recalled
        std::shared_ptr<const match_list> own_; // which it made
        std::thread::id thread_;
        std::size_t seat_ = no_seat;
        bool is_use_counted_ = false; // by a removal, in the handler that it is inside of
    };

    /// What was remembered for this generation, or null. Stays until the visitor
    /// is counted. The first call of a visitor, and only once.
    const match_list* recall(visitor& broadcast, std::uint64_t generation);

    /// Remembers a list for others, perhaps. The visitor keeps it in any case.
    void remember(visitor& broadcast, std::shared_ptr<const match_list> matches);

    /// Only keeps it.
    void keep(visitor& broadcast, std::shared_ptr<const match_list> matches);

    /// Ends a visit and counts it. The period if it ended with this broadcast, else
    /// null; the caller writes its report.
    std::unique_ptr<const statistics_data_t> UpdateStatistics(visitor& broadcast);

    /// Counts the broadcasts that are inside of a handler, of which none begins a call
    /// any more.
    void count_uses(registered_handler& removed) noexcept;

    /// For the end of the service.
    std::unique_ptr<const statistics_data_t> take_period();

private:
    friend class announced_call;

    static constexpr std::size_t no_seat = static_cast<std::size_t>(-1);

    void end_use(visitor& broadcast, registered_handler& used);
    void take_seat(visitor& broadcast) ZEL_REQUIRES(guard_);
    void detach(const std::shared_ptr<const match_list>& matches) noexcept ZEL_REQUIRES(guard_);
    void count(const visitor& broadcast) ZEL_REQUIRES(guard_);
    std::unique_ptr<statistics_data_t> end_period() ZEL_REQUIRES(guard_);

    // Guards everything below; held for a look-up or an addition. What every broadcast
    // writes lies beside it, in one line of the processor's cache.
    alignas(64) platform::brief_lock guard_;
    std::uint32_t total_count_ ZEL_GUARDED_BY(guard_) = 0; // of the period, like the rest
    std::uint64_t period_number_ ZEL_GUARDED_BY(guard_) = 1;
    tasklib::unbiased_clock::time_point deadline_ ZEL_GUARDED_BY(guard_);
    std::unique_ptr<statistics_data_t> period_ ZEL_GUARDED_BY(guard_);

    match_table<match_list> lists_ ZEL_GUARDED_BY(guard_);
    // Those that have begun and are not counted yet; null where a seat is free.
    std::vector<visitor*> under_way_ ZEL_GUARDED_BY(guard_);
};

/// A broadcast's use of a handler, for as long as it lives. Removal does not wait for it.
class announced_call {
public:
    announced_call(broadcast_records& records, broadcast_records::visitor& broadcast,
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
    broadcast_records::visitor& broadcast_;
    broadcast_records::registered_handler& handler_;
    bool may_run_;
};

} // namespace zel::event_routing::impl
