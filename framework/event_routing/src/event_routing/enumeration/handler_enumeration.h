// The requests that list every registered handler.
#pragma once

#include "framework/event_routing/src/event_routing/module/named_event_routings.h"

#include <event_routing/request_routing.h>
#include <event_routing/snowball_routing.h>

#include <tasklib/registrations.h>

namespace zel::event_routing::impl {

/// The services whose handlers are listed.
struct enumerated_services {
    IEventRouting& events;
    const named_event_routings& named_events;
    IRequestRouting& requests;
    ISnowballRouting& snowballs;
};

/// Registers the two handlers on the request service, as fallbacks; components can answer
/// in their place. The services must outlive the cookies.
void register_enumeration_handlers(const enumerated_services& services,
                                   tasklib::registrations& cookies);

} // namespace zel::event_routing::impl
