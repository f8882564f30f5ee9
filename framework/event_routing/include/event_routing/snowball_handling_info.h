// What a monitor of the snowball service is told.
#pragma once

#include <event_routing/handler_record.h>
#include <event_routing/routing_parameters.h>

#include <limits>
#include <optional>
#include <vector>

namespace zel::event_routing::monitor {

/// About one pass, when it has ended.
struct snowball_handling_info_3 {
    routing_parameters values; ///< empty today

    std::optional<handler_record> current_handler; ///< the call that threw
    std::vector<handler_record> called_handlers;   ///< those that have ended, in order

    /// Time by the clock in seconds; NaN when not measurable.
    double elapsed_time = std::numeric_limits<double>::quiet_NaN();
    /// The same for the time of the sending thread's processor.
    double cpu_time = std::numeric_limits<double>::quiet_NaN();
};

} // namespace zel::event_routing::monitor
