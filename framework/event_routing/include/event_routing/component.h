// How a component starts that a host loads at run time.
//
// The component's library exports one function, which registers the handlers and gives the
// host what keeps them registered:
//
//     void start_event_routing_component(std::shared_ptr<void>& component) {
//         component = std::make_shared<spelling>(); // holds the cookies of its handlers
//     }
//
// The host, a component_host as a rule (component_host.h), knows nothing else of the
// component. It drops what it was given before it gives the library back. What the function
// throws ends the component's start, and so does a pointer that it leaves empty; what it had
// registered goes with what it held.
#pragma once

#include <event_routing/client.h>

#include <memory>

/// Starts the component. Exported by its library and called by the host, once.
extern "C" ZEL_EXPORT void start_event_routing_component(std::shared_ptr<void>& component);
