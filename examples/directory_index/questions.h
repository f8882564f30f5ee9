// Asking from the command line.
#pragma once

#include "examples/directory_index/component.h"
#include "examples/directory_index/console.h"

#include <string>
#include <vector>

namespace directory_index {

/// Asks for each word which files have it, or the question that it names ("index.lookup"),
/// and shows the answers; complains where there is none. True when all were answered.
bool ask(zel::event_routing::IRequestRouting& requests, const std::vector<std::string>& words,
         const printer& show);

/// All handlers that are registered in this process, as one line of JSON.
std::string handlers_as_json(zel::event_routing::IRequestRouting& requests);

} // namespace directory_index
