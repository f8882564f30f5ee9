#include "framework/event_routing/src/event_routing/events/event_monitors.h"

namespace zel::event_routing::impl {

void measurement_scope::tell(const message_scope& message, const event_monitors::snapshot& monitors,
                             const measurement& begin, const char* label,
                             const MultiPathHandlerInfo& handler, const event_data& data,
                             const routing_parameters& parameters) {
    monitor::event_handling_info_2 info;
    begin.end_into(info);
    info.handler_info.emplace(handler.level, label + handler.handler->description);
    event_monitors::NotifyMonitors(message, monitors, *handler.path, data, parameters, info);
}

void tell_of_broadcast(const message_scope& message, const event_monitors::snapshot& monitors,
                       const measurement& begin, const std::string& paths,
                       const match_list* handlers, const event_data& data,
                       const routing_parameters& parameters) {
    monitor::event_handling_info_2 info;
    begin.end_into(info);
    if (handlers) {
        info.handlers_info.reserve(handlers->handlers.size());
        for (const auto& h : handlers->handlers)
            info.handlers_info.emplace_back(h.level, h.handler->description);
    }
    event_monitors::NotifyMonitors(message, monitors, paths, data, parameters, info);
}

} // namespace zel::event_routing::impl
