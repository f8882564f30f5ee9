// Makes the module and registers a handler, twice; prints what failed and how many
// handlers there are in the end.
#include <event_routing/client.h>

#include <iostream>

int main() {
    using namespace zel::event_routing;
    for (int round = 0; round < 2; ++round)
        try {
            const auto module = get_module();
            const auto events = get_event_routing(*module);
            try {
                events->RegisterEventHandler(nullptr, "a", nullptr, nullptr, "d").reset();
            } catch (const std::exception& failure) {
                std::cout << failure.what() << '\n';
            }
            std::cout << events->GetEventHandlers().size() << " handlers\n";
        } catch (const std::exception& failure) {
            std::cout << failure.what() << '\n';
        }
}
