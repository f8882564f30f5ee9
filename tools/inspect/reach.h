// Which handlers a path reaches, told from the list of handlers alone.
//
// By the rules that the routing services document: `a.b` is reached by `a.b`, `a.b.*` by
// every path below `a.b`, `*` by every path; the most specific first, in the order of
// registration within a level.
#pragma once

#include "tools/inspect/services.h"

#include <cstddef>
#include <json/value.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inspect {

/// Subnodes of the registration, the "*" not counted, when a routed path reaches it.
std::optional<std::size_t> match_level(std::string_view registered, std::string_view routed);

struct reached_handler {
    std::size_t level = 0;
    std::string registered; ///< the handler's path
    std::string description;
    std::string routed; ///< as the handler is given it; of several paths those that reach it
};

/// In the order in which they are called. The path of an event may be several, separated
/// by ";"; a handler that several of them reach is called once.
std::vector<reached_handler> reached_handlers(const service& asked, const std::string& path);

/// What the order of a service's handlers does not tell; empty when it tells all.
std::string_view caution(handler_type type);

std::string reach_as_text(const service& asked, const std::string& path);
/// "type", "channelId" (of named instances), "path" and "handlers", of which each has
/// "level", "path", "description" and "routed".
Json::Value reach_as_json(const service& asked, const std::string& path);

} // namespace inspect
