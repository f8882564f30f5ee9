// Monitors of all services, and cumulative events that are still to come when the plug-in
// goes.
#include "tests/reload/plugin.h"

using namespace zel::test;

void start_event_routing_component(std::shared_ptr<void>& component) {
    const services to{};
    const auto told = std::make_shared<std::atomic<std::uint64_t>>(0);
    const auto tells = [told](auto&&...) { ++*told; };
    const auto delivered = [told](const std::string&, const event_data&,
                                  const routing_parameters& about) {
        *told += std::uint64_t(about.at("cumulative_event_count").number);
        return true;
    };
    to.events->BroadcastCumulativeEvent({false, 1000}, "pulse.started", nullptr, {}, nullptr);
    component = std::make_shared<cookies>(cookies{
        to.events->RegisterMonitorHandler(tells), to.requests->RegisterMonitorHandler(tells),
        to.snowballs->RegisterMonitorHandler(tells),
        to.events->RegisterEventHandler(nullptr, "pulse.*", delivered, nullptr, "pulse")});
}
