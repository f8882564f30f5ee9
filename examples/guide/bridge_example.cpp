#include <event_routing/client.h>
#include <event_routing/nats_bridge.h>
#include <event_routing/typed.h>
#include <iostream>

using namespace zel::event_routing;

using Said = Event<std::string>;

int main(int, char** arguments) {
    const auto events = get_event_routing(*get_module());
    const auto show = events->RegisterEventHandler(
        nullptr, "chat.*", Said::SynchronousPart([](const std::string& text, const auto& head) {
            std::cout << text_or(head.parameters, nats::parameter::host, "I") << ": " << text
                      << '\n';
            return true;
        }),
        nullptr, "chat");

    nats::bridge_options options; // the server is expected on this machine
    options.realm = "chat";
    options.host = arguments[1] ? arguments[1] : "somebody";
    options.export_events = {{"chat.*", ""}};
    options.import_events = {{"chat.*", ""}};
    nats::bridge to_the_others(options);
    if (!to_the_others.wait_until_ready(std::chrono::seconds(5)))
        std::cerr << "there is no server yet\n";
    for (std::string line; std::getline(std::cin, line);)
        Said::Broadcast(*events, "chat.line", line);
}
