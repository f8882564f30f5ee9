// The bridge as a component, for hosts that know nothing of it.
//
// It is a library beside the bridge's: that one stays mapped, while a host unloads and reloads
// this one as any other component. Programs that link the bridge would also offer this function
// in the name of every component of theirs that has forgotten its own.
#include "framework/exceptions/exceptions.h"

#include <event_routing/component.h>
#include <event_routing/nats_bridge.h>

#include <cstdlib>

namespace {

namespace nats = zel::event_routing::nats;
using zel::exceptions::error;

nats::bridge_options configured() {
    const std::string variable = nats::configuration_variable;
    const char* const file = std::getenv(variable.c_str());
    if (!file || !*file)
        throw error("The environment variable " + variable +
                    ", which names the configuration of the bridge, is not set.");
    try {
        return nats::read_configuration(file);
    } catch (const error& failure) {
        throw error("The environment variable " + variable + ": " + failure.what());
    }
}

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    component = std::make_shared<nats::bridge>(configured());
}
