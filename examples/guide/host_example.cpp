#include <event_routing/client.h>
#include <event_routing/component_host.h>
#include <event_routing/typed.h>
#include <iostream>

using namespace zel::event_routing;

using Greet = Request<std::string, std::string>; // a name in, a greeting out

int main() {
    const auto requests = get_request_routing(*get_module());
    component_host components;
    components.start("greeter"); // libgreeter.so
    std::cout << *Greet::Ask(*requests, "greet", "you").value << '\n';
    components.reload("greeter"); // whoever else may be sending to it
    std::cout << *Greet::Ask(*requests, "greet", "again").value << '\n';
    if (const auto end = components.stop("greeter"); !end.is_unmapped)
        std::cerr << end.text() << '\n';
}
