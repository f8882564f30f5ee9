// The bridge as a component: any host that loads components takes part in a realm.
//
// The environment variable EVENT_ROUTING_BRIDGE_CONFIG names the file with the configuration.
#include "framework/exceptions/exceptions.h"
#include "libraries/nats_bridge/read_file.h"

#include <event_routing/component.h>
#include <event_routing/nats_bridge.h>

#include <cstdlib>

using namespace zel::event_routing;

void start_event_routing_component(std::shared_ptr<void>& component) {
    const char* const file = std::getenv("EVENT_ROUTING_BRIDGE_CONFIG");
    if (!file || !*file)
        throw zel::exceptions::error("EVENT_ROUTING_BRIDGE_CONFIG names no configuration.");
    component = std::make_shared<nats::bridge>(nats::options_from_json(nats::read_file(file)));
}
