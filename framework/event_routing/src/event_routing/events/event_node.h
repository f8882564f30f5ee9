// What the routing map holds for events.
#pragma once

#include "framework/event_routing/src/event_routing/routing/routing_map.h"

#include <event_routing/event_routing.h>

namespace zel::event_routing::impl {

struct EventRoutingNodeFunction {
    synchronous_event_part synchronous_part;
    asynchronous_event_part asynchronous_part;
};

struct EventRoutingNodeAdditionalData {
    std::shared_ptr<tasklib::task_queue_ifc> queue;
};

inline callable_code code_of(const EventRoutingNodeFunction& parts,
                             const EventRoutingNodeAdditionalData&) noexcept {
    return {"handler of events", platform::image_that_made(parts.synchronous_part),
            platform::image_that_made(parts.asynchronous_part)};
}

using event_routing_node = RoutingMapNode<EventRoutingNodeFunction, EventRoutingNodeAdditionalData>;

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::impl::EventRoutingNodeFunction> {
    static std::string text() {
        return "struct zel::event_routing::impl::EventRoutingNodeFunction";
    }
};

template <>
struct zel::declared_type_name<zel::event_routing::impl::EventRoutingNodeAdditionalData> {
    static std::string text() {
        return "struct zel::event_routing::impl::EventRoutingNodeAdditionalData";
    }
};
