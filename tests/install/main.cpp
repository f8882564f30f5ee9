#include <event_routing/client.h>

#include <iostream>
#include <memory>
#include <string>

int main() {
    const auto module = zel::event_routing::get_module();
    const auto events = zel::event_routing::get_event_routing(*module);

    const auto cookie = events->RegisterEventHandler(
        nullptr, "a.*",
        [](const std::string& path, const std::shared_ptr<const zel::serialization::IDataHolder>&,
           const zel::event_routing::routing_parameters&) {
            std::cout << "handled " << path << '\n';
            return true;
        },
        nullptr, "prints the path");

    events->BroadcastEvent("a.b", nullptr, {}, nullptr);
    events->BroadcastEvent("c.d", nullptr, {}, nullptr);
}
