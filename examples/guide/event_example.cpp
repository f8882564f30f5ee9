#include <event_routing/client.h>
#include <event_routing/typed.h>
#include <iostream>

using namespace zel::event_routing;

using Saved = Event<std::string>; // the name of a document

int main() {
    const auto events = get_event_routing(*get_module());
    const auto title_bar = events->RegisterEventHandler(
        nullptr, "document.saved", Saved::SynchronousPart([](const std::string& name) {
            std::cout << name << " (saved)\n";
            return true;
        }),
        nullptr, "title bar");
    const auto backup =
        events->RegisterEventHandler(events->CreateTaskQueue(), "document.*", nullptr,
                                     Saved::AsynchronousPart([](const std::string& name) {
                                         std::cout << "copy " << name << '\n';
                                     }),
                                     "backup");
    // Waits for the backup, too.
    Saved::Broadcast(*events, "document.saved", "letter", {{parameter::synchronous, -1}});
}
