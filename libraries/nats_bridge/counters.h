// What a bridge has done so far. Any thread.
#pragma once

#include <event_routing/nats_bridge.h>

#include <atomic>

namespace zel::event_routing::nats {

// Relaxed throughout: each is a number for people, and none says anything about another.
struct counters {
    std::atomic<std::uint64_t> events_sent{0};
    std::atomic<std::uint64_t> events_received{0};
    std::atomic<std::uint64_t> events_not_sent{0};
    std::atomic<std::uint64_t> events_lost{0};
    std::atomic<std::uint64_t> events_refused{0};
    std::atomic<std::uint64_t> requests_asked{0};
    std::atomic<std::uint64_t> requests_served{0};
    std::atomic<std::uint64_t> requests_expired{0};
    std::atomic<std::uint64_t> hosts_passed_by{0};
    std::atomic<std::uint64_t> late_answers{0};

    static void add(std::atomic<std::uint64_t>& counter, std::uint64_t count = 1) noexcept {
        counter.fetch_add(count, std::memory_order_relaxed);
    }

    bridge_counts read() const noexcept {
        const auto now = [](const auto& counter) {
            return counter.load(std::memory_order_relaxed);
        };
        return {now(events_sent),     now(events_received),  now(events_not_sent),
                now(events_lost),     now(events_refused),   now(requests_asked),
                now(requests_served), now(requests_expired), now(hosts_passed_by),
                now(late_answers)};
    }
};

} // namespace zel::event_routing::nats
