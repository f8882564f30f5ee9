// What monitors of requests and snowball passes are told of one call of a handler.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

namespace zel::event_routing::monitor {

/// One call of a handler.
struct handler_record {
    std::int32_t level = 0;  ///< subnodes of the handler's registration, the "*" not counted
    std::string description; ///< as it was registered

    /// Time by the clock in seconds; NaN until the call has ended, or when not measurable.
    double elapsed_time = std::numeric_limits<double>::quiet_NaN();
    /// The same for the time of the calling thread's processor.
    double cpu_time = std::numeric_limits<double>::quiet_NaN();
};

} // namespace zel::event_routing::monitor
