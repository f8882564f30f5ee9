// Numbers of the messages that monitors are told of. Shared by the module, which
// hands numbers out, and the services, which number messages themselves.
#pragma once

#include <event_routing/routing_parameters.h>

#include <cstdint>

namespace zel::event_routing::impl {

/// Each returns the next number of its kind, from 1, and wraps after 4294967295.
std::uint32_t next_event_message_id() noexcept;
std::uint32_t next_request_message_id() noexcept;
std::uint32_t next_snowball_message_id() noexcept;

/// Whether a message has its number already: one that was forwarded keeps it.
bool is_numbered(const routing_parameters& parameters);

/// Stores the number and that of the process, which together name a message across
/// processes. What the map has under their names is lost.
void overwrite_message_number(routing_parameters& parameters, std::uint32_t number);
/// Stores only what is missing of the two: what the map has under their names stays.
void fill_in_message_number(routing_parameters& parameters, std::uint32_t number);

} // namespace zel::event_routing::impl
