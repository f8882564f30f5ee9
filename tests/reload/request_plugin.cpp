// Handlers of requests of every kind and of snowballs.
#include "tests/reload/plugin.h"

#include <stdexcept>

using namespace zel::test;

void start_event_routing_component(std::shared_ptr<void>& component) {
    const services to{};
    const auto counts = Count::RequestHandler([](const std::string& words) -> std::int64_t {
        // Of a type of the system: what a plug-in's own exceptions need goes with the plug-in.
        if (words == "none")
            throw std::runtime_error("there are no words");
        return static_cast<std::int64_t>(words.size());
    });
    const auto declines = [](auto&&...) { return false; };
    const auto adds = Menu::SnowballHandler([](auto& so_far, auto&) { so_far.push_back("open"); });
    component = std::make_shared<cookies>(cookies{
        to.requests->RegisterRequestRedirectionHandler("count.*", declines, "looks elsewhere"),
        to.requests->RegisterRequestHandler(paths::count, 1, declines, "never knows"),
        to.requests->RegisterRequestHandler(paths::count, 0, counts, "counts"),
        to.requests->RegisterRequestFallbackHandler("*", declines, "the last one asked"),
        to.snowballs->RegisterSnowballHandler(paths::menu, adds, "open")});
}
