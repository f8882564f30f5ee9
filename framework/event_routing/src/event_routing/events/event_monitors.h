// What the event service tells its monitors, and when.
#pragma once

#include "framework/event_routing/src/event_routing/events/match_list.h"
#include "framework/event_routing/src/event_routing/monitors/measurement.h"
#include "framework/event_routing/src/event_routing/monitors/monitor_handlers.h"

#include <event_routing/event_handling_info.h>

#include <optional>

namespace zel::event_routing::impl {

using event_monitors = MonitorHandlers<void(const std::string& path, const event_data& data,
                                            const routing_parameters& parameters,
                                            const monitor::event_handling_info_2& info)>;

/// Measures one part of one handler, from the making of the object to `end`. Without
/// monitors it reads no clock, and `end` does nothing.
class measurement_scope {
public:
    explicit measurement_scope(const event_monitors::snapshot& monitors) {
        if (!monitors.empty())
            begin_.emplace();
    }

    /// `label`: "Sync: " or "Async: ". What a monitor throws reaches the caller.
    void end(const message_scope& message, const event_monitors::snapshot& monitors,
             const char* label, const MultiPathHandlerInfo& handler, const event_data& data,
             const routing_parameters& parameters) const {
        if (begin_)
            tell(message, monitors, *begin_, label, handler, data, parameters);
    }

private:
    static void tell(const message_scope& message, const event_monitors::snapshot& monitors,
                     const measurement& begin, const char* label,
                     const MultiPathHandlerInfo& handler, const event_data& data,
                     const routing_parameters& parameters);

    std::optional<measurement> begin_;
};

/// Tells of a whole broadcast; `handlers` is null when none were collected.
void tell_of_broadcast(const message_scope& message, const event_monitors::snapshot& monitors,
                       const measurement& begin, const std::string& paths,
                       const match_list* handlers, const event_data& data,
                       const routing_parameters& parameters);

} // namespace zel::event_routing::impl
