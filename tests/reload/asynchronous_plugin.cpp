// Only asynchronous parts: nobody is waited for when they go but those that run, and a
// broadcast under way may be the last to let one go.
#include "tests/reload/plugin.h"

using namespace zel::test;

void start_event_routing_component(std::shared_ptr<void>& component) {
    const services to{};
    const auto queue = to.events->CreateTaskQueue();
    const auto owned = std::make_shared<std::vector<int>>(16, 7);
    const auto works = [owned](const std::string& path, const event_data&,
                               const routing_parameters&) {
        if (path.empty() || owned->at(15) != 7)
            std::abort(); // it was destroyed before its call
    };
    component = std::make_shared<cookies>(cookies{
        to.events->RegisterEventHandler(nullptr, "work.*", nullptr, works, "at once"),
        to.events->RegisterEventHandler(queue, "work.*", nullptr, works, "in order"),
        to.events->RegisterEventHandler(queue, paths::work, nullptr, works, "in order, exactly")});
}
