// What the routing maps hold for requests.
#pragma once

#include "framework/event_routing/src/event_routing/routing/handler_type_name.h"
#include "framework/event_routing/src/event_routing/routing/routing_map.h"

#include <event_routing/request_routing.h>

namespace zel::event_routing::impl {

struct RequestRoutingNodeAdditionalData {
    std::int32_t priority = 0; ///< of regular handlers; the higher is asked first
};

inline callable_code code_of(const request_handler& handler,
                             const RequestRoutingNodeAdditionalData&) noexcept {
    return {"handler of requests", platform::image_that_made(handler)};
}

using request_routing_node = RoutingMapNode<request_handler, RequestRoutingNodeAdditionalData>;

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::request_handler> {
    static std::string text() { return event_routing::impl::handler_type_name("bool"); }
};

template <>
struct zel::declared_type_name<zel::event_routing::impl::RequestRoutingNodeAdditionalData> {
    static std::string text() {
        return "struct zel::event_routing::impl::RequestRoutingNodeAdditionalData";
    }
};
