#include "framework/event_routing/src/event_routing/enumeration/handler_enumeration.h"

#include <event_routing/enumerate_handlers.h>
#include <event_routing/typed.h>

namespace zel::event_routing::impl {

namespace {

using namespace enumerate_handlers;

std::vector<handler_list> list_handlers(const enumerated_services& services) {
    return {{handler_type::event, services.events.GetEventHandlers()},
            {handler_type::request, services.requests.GetRequestHandlers()},
            {handler_type::snowball, services.snowballs.GetSnowballHandlers()}};
}

std::vector<handler_list_2> list_handlers_by_channel(const enumerated_services& services) {
    std::vector<handler_list_2> all = {
        {handler_type::event, services.events.GetEventHandlers(), {}}};
    for (const auto& [name, instance] : services.named_events.all())
        all.push_back({handler_type::event, instance->GetEventHandlers(), name});
    all.push_back({handler_type::request, services.requests.GetRequestHandlers(), {}});
    all.push_back({handler_type::snowball, services.snowballs.GetSnowballHandlers(), {}});
    return all;
}

constexpr const char* description = "event_routing_enumerate_handlers_handler";

} // namespace

void register_enumeration_handlers(const enumerated_services& services,
                                   tasklib::registrations& cookies) {
    cookies.add(services.requests.RegisterRequestFallbackHandler(
        "event_routing.enumerate_handlers",
        Request<std::vector<handler_list>>::RequestHandler(
            [services] { return list_handlers(services); }),
        description));
    cookies.add(services.requests.RegisterRequestFallbackHandler(
        "event_routing.enumerate_handlers2",
        Request<std::vector<handler_list_2>>::RequestHandler(
            [services] { return list_handlers_by_channel(services); }),
        description));
}

} // namespace zel::event_routing::impl
