// All handlers as a tree, in the forms that `list` offers.
#pragma once

#include "tools/inspect/services.h"

#include <json/value.h>
#include <string>
#include <vector>

namespace inspect {

/// Subnodes indented, descriptions in brackets.
std::string tree_as_text(const std::vector<service>& services);

/// One object for each service: "type", "channelId" (absent but for named instances) and
/// "subnodes", of which each has "name", "handlers" (descriptions) and "subnodes". Throws
/// exceptions::error for a path of too many subnodes for a JSON document.
Json::Value tree_as_json(const std::vector<service>& services);

/// A graph in the language of Graphviz.
std::string tree_as_dot(const std::vector<service>& services);

/// The graph drawn by the program `dot`. Throws exceptions::error when that is missing
/// or fails.
std::string tree_as_svg(const std::vector<service>& services);

} // namespace inspect
