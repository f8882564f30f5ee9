// Payloads of a type of its own: as answers that others keep, and as events that others
// handle later.
#include "tests/reload/plugin.h"

using namespace zel::test;
using namespace zel::serialization;

void start_event_routing_component(std::shared_ptr<void>& component) {
    const services to{};
    const auto draws = [](auto&, auto&, request_answer& response, auto&, auto&) {
        response = make_payload(drawing{"a drawing", std::vector<std::int32_t>(9, 7)});
        return true;
    };
    // In turn with the traffic, so that drawings are on their way when the plug-in goes.
    const auto publishes = [events = std::weak_ptr(to.events)](auto&&...) {
        if (const auto to_all = events.lock()) {
            to_all->BroadcastEvent(paths::made, make_payload(drawing{"made", {1, 2, 3}}), {},
                                   nullptr);
            to_all->BroadcastCumulativeEvent({false, 500}, paths::made,
                                             make_payload(drawing{"merged", {4}}), {}, nullptr);
        }
        return true;
    };
    component = std::make_shared<cookies>(cookies{
        to.requests->RegisterRequestHandler(paths::draw, 0, draws, "draws"),
        to.events->RegisterEventHandler(nullptr, paths::work, publishes, nullptr, "publishes")});
}
