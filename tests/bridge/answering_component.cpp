// What a program with a bridge loads: answers "work.a".
#include <event_routing/component.h>
#include <framework/serialization/payload.h>

using namespace zel::event_routing;

void start_event_routing_component(std::shared_ptr<void>& component) {
    const auto answer = [](const std::string&, const request_data&, request_answer& response,
                           request_answer&, const routing_parameters&) {
        response = zel::serialization::make_payload(std::string("from a component"));
        return true;
    };
    zel::serialization::register_data_type<std::string>(); // others may send some
    component =
        get_request_routing(*get_module())->RegisterRequestHandler("work.a", 0, answer, "answer");
}
