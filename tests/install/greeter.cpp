#include <event_routing/component.h>
#include <event_routing/typed.h>

using namespace zel::event_routing;

void start_event_routing_component(std::shared_ptr<void>& component) {
    using Greet = Request<std::string, std::string>;
    component =
        get_request_routing(*get_module())
            ->RegisterRequestHandler("greet", 0, Greet::RequestHandler([](const std::string& name) {
                                         return "Hello " + name;
                                     }),
                                     "greeter");
}
