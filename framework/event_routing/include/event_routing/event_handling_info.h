// What a monitor of the event service is told.
#pragma once

#include <event_routing/routing_parameters.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zel::event_routing::monitor {

/// About one part of one handler, or about a whole broadcast.
struct event_handling_info_2 {
    using level_and_text = std::pair<std::int32_t, std::string>; ///< of a handler

    routing_parameters values; ///< empty today

    /// Of a broadcast: level and description of every handler it found, in the order
    /// in which they run, each once.
    std::vector<level_and_text> handlers_info;
    /// Of a part: the handler's level, and "Sync: " or "Async: " with its description.
    std::optional<level_and_text> handler_info;

    /// Time of the calling thread's processor in seconds; NaN when not measured. The time of
    /// a broadcast ends when the broadcasting thread has done its part; asynchronous parts
    /// may still run.
    double cpu_time = std::numeric_limits<double>::quiet_NaN();
    /// The same time by the clock.
    double elapsed_time = std::numeric_limits<double>::quiet_NaN();
};

} // namespace zel::event_routing::monitor
