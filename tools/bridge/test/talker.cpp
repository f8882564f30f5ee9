// Two components for two processes: one speaks on and on and can be asked its name, the other one
// asks whoever speaks, and prints the answer.
#include <event_routing/component.h>
#include <event_routing/nats_bridge.h>
#include <event_routing/typed.h>

#include <platform/process.h>

#include <cstdio>
#include <thread>

using namespace zel::event_routing;

using Spoken = Event<std::string>;
using Name = Request<std::string, std::string>;

namespace {

struct speaker {
    ~speaker() { std::puts("the speaker has ended"); }

    const std::shared_ptr<IEventRouting> events = get_event_routing(*get_module());
    const std::shared_ptr<zel::tasklib::keep_registered> name =
        get_request_routing(*get_module())
            ->RegisterRequestHandler("name", 0, Name::RequestHandler([](const std::string& whose) {
                                         return whose + " is Ada";
                                     }),
                                     "speaker");
    std::jthread speaks{[this](const std::stop_token& end) {
        while (!end.stop_requested()) {
            Spoken::Broadcast(*events, "spoken", "hello");
            zel::platform::sleep_for(zel::platform::milliseconds(10));
        }
    }};
};

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    component = std::make_shared<speaker>();
}

extern "C" ZEL_EXPORT void start_listener(std::shared_ptr<void>& component) {
    const auto ask = [requests = get_request_routing(*get_module())](const std::string& text,
                                                                     const message_head& head) {
        const auto name = Name::Ask(*requests, "name", "the speaker");
        std::printf("%s: %s, and %s\n",
                    text_or(head.parameters, nats::parameter::host, "nobody").c_str(), text.c_str(),
                    name.value->c_str());
        std::fflush(stdout);
        return true;
    };
    component =
        get_event_routing(*get_module())
            ->RegisterEventHandler(nullptr, "spoken", Spoken::SynchronousPart(ask), nullptr, "ask");
}
