// How a component starts that a host loads at run time.
//
// The component's library exports one function, which registers the handlers and gives the
// host what keeps them registered:
//
//     void start_event_routing_component(std::shared_ptr<void>& component) {
//         component = std::make_shared<spelling>(); // holds the cookies of its handlers
//     }
//
// The host knows nothing else of the component. It drops what it was given before it gives
// the library back. What the function throws ends the component's start; what it had
// registered goes with what it held.
#pragma once

#include <event_routing/client.h>

#include <memory>

/// Starts the component. Exported by its library and called by the host, once.
extern "C" ZEL_EXPORT void start_event_routing_component(std::shared_ptr<void>& component);
