#include "framework/event_routing/src/event_routing/event_monitors.h"

namespace zel::event_routing::impl {

namespace {

monitor::event_handling_info_2 info_of(const measured_times& times) {
    monitor::event_handling_info_2 info;
    info.cpu_time = times.cpu_time;
    info.elapsed_time = times.elapsed_time;
    return info;
}

} // namespace

void measured_part::tell(const char* label, const MultiPathHandlerInfo& handler,
                         const event_data& data, const routing_parameters& parameters) const {
    auto info = info_of(begin_->end());
    info.handler_info.emplace(handler.level, label + handler.handler->description);
    event_monitors::NotifyMonitors(monitors_, *handler.path, data, parameters, info);
}

void tell_of_broadcast(const event_monitors::snapshot& monitors, const measurement& begin,
                       const std::string& paths, const match_list* handlers, const event_data& data,
                       const routing_parameters& parameters) {
    auto info = info_of(begin.end());
    if (handlers) {
        info.handlers_info.reserve(handlers->handlers.size());
        for (const auto& h : handlers->handlers)
            info.handlers_info.emplace_back(h.level, h.handler->description);
    }
    event_monitors::NotifyMonitors(monitors, paths, data, parameters, info);
}

} // namespace zel::event_routing::impl
