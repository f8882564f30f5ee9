#include <event_routing/component.h>
#include <event_routing/typed.h>

using namespace zel::event_routing;

using Greet = Request<std::string, std::string>; // a name in, a greeting out

void start_event_routing_component(std::shared_ptr<void>& component) {
    const auto greets = [](const std::string& name) { return "Hello " + name; };
    component = get_request_routing(*get_module())
                    ->RegisterRequestHandler("greet", 0, Greet::RequestHandler(greets), "greeter");
}
