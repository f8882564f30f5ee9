// What a monitor of the request service is told.
#pragma once

#include <event_routing/handler_record.h>
#include <event_routing/routing_parameters.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace zel::event_routing::monitor {

/// Where a request stands. As numbers, because records travel and may be kept.
namespace request_stage {
inline constexpr std::int32_t not_started = 0;  ///< no handler has been looked for
inline constexpr std::int32_t local = 1;        ///< only with "prefer_local_request_handlers"
inline constexpr std::int32_t regular = 2;      ///< ordinary handlers
inline constexpr std::int32_t fallback = 3;     ///< those for what nobody else answers
inline constexpr std::int32_t result_check = 4; ///< whether it was answered
inline constexpr std::int32_t redirection = 5;  ///< the first of all
} // namespace request_stage

/// About one request, when it has ended.
struct request_handling_info_3 {
    routing_parameters values; ///< empty today

    std::int32_t stage = request_stage::not_started; ///< the last one that was entered
    /// The call that threw, or the redirection that answered.
    std::optional<handler_record> current_handler;
    std::optional<handler_record> processing_handler; ///< the one that answered true
    std::vector<handler_record> declined_handlers;    ///< calls that answered false, in order

    /// Time by the clock in seconds; NaN when not measurable.
    double elapsed_time = std::numeric_limits<double>::quiet_NaN();
    /// The same for the time of the sending thread's processor.
    double cpu_time = std::numeric_limits<double>::quiet_NaN();
};

} // namespace zel::event_routing::monitor
