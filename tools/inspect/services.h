// What is registered with the routing services of this process, as one answer of the
// enumeration tells it.
//
// The answer has paths and descriptions alone. It tells no priorities and lists neither
// fallbacks nor redirections of requests; a path that begins with a full stop is listed
// without it, and one that is empty as empty.
#pragma once

#include <event_routing/enumerate_handlers.h>
#include <event_routing/request_routing.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inspect {

using zel::event_routing::enumerate_handlers::handler_texts;
using zel::event_routing::enumerate_handlers::handler_type;

/// One routing service and its handlers, in the order of its tree.
struct service {
    handler_type type = handler_type::undefined;
    std::optional<std::string> channel; ///< of a named event routing instance
    handler_texts handlers;
};

/// Requests with this parameter are this program's own.
inline constexpr const char* own_request = "event_routing_inspect";

/// Asks for all of them. Throws exceptions::error when nobody answers, and what asking
/// threw.
std::vector<service> enumerate_services(zel::event_routing::IRequestRouting& requests);

/// "event", "request" or "snowball"; of another type its number.
std::string name_of(handler_type type);

/// "event, channel 'ui'" for instance; made printable.
std::string title_of(const service& shown);

/// The service of that name among the event routing instances. Throws exceptions::error
/// that lists those there are.
const service& channel_named(const std::vector<service>& services, const std::string& name);

} // namespace inspect
