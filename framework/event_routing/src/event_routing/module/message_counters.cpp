#include "framework/event_routing/src/event_routing/module/message_counters.h"

#include <platform/process.h>

#include <atomic>
#include <iterator>

namespace zel::event_routing::impl {

namespace {

// Relaxed: only the numbers themselves must differ.
constinit std::atomic<std::uint32_t> events{0};
constinit std::atomic<std::uint32_t> requests{0};
constinit std::atomic<std::uint32_t> snowballs{0};

std::uint32_t next(std::atomic<std::uint32_t>& counter) noexcept {
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

} // namespace

std::uint32_t next_event_message_id() noexcept {
    return next(events);
}

std::uint32_t next_request_message_id() noexcept {
    return next(requests);
}

std::uint32_t next_snowball_message_id() noexcept {
    return next(snowballs);
}

bool is_numbered(const routing_parameters& parameters) {
    return !parameters.empty() && parameters.contains(parameter::monitoring_message_id);
}

void overwrite_message_number(routing_parameters& parameters, std::uint32_t number) {
    const auto id = parameters.insert_or_assign(parameter::monitoring_message_id, number).first;
    parameters.insert_or_assign(std::next(id), parameter::monitoring_message_pid,
                                platform::process_id());
}

void fill_in_message_number(routing_parameters& parameters, std::uint32_t number) {
    parameters.try_emplace(parameter::monitoring_message_id, number);
    parameters.try_emplace(parameter::monitoring_message_pid, platform::process_id());
}

} // namespace zel::event_routing::impl
