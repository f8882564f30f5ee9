// Components for component_host_test.cpp, one for each exported function.
#include "tests/reload/plugin.h"

using namespace zel::test;
using namespace zel::serialization;

namespace {

// A type of this library alone, which must not outlive it.
struct own_failure : std::exception {
    const char* what() const noexcept override { return "no paper"; }
};

// Tells everybody when it ends.
struct telling {
    explicit telling(std::string own_name) : name(std::move(own_name)) {}
    ~telling() { to.events->BroadcastEvent("ended." + name, nullptr, {}, nullptr); }

    const services to{};
    const std::string name;
    cookies registered;
};

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    const auto made = std::make_shared<telling>("first");
    const auto& to = made->to;
    // Stays inside for as long as somebody who answers "gate" likes.
    const auto slow = [requests = std::weak_ptr(to.requests)](auto&&...) {
        request_answer response, error_response;
        requests.lock()->SendRequest("gate", nullptr, response, error_response, {});
        return true;
    };
    const auto draws = Draw::RequestHandler([](std::int32_t strokes) {
        static std::int32_t made_before = 0;
        return drawing{"a drawing", {strokes, made_before++}};
    });
    made->registered = {to.events->RegisterEventHandler(nullptr, "slow", slow, nullptr, "is slow"),
                        to.requests->RegisterRequestHandler(paths::draw, 0, draws, "draws")};
    component = made;
}

extern "C" ZEL_EXPORT void start_second(std::shared_ptr<void>& component) {
    component = std::make_shared<telling>("second");
}

extern "C" ZEL_EXPORT void start_nothing(std::shared_ptr<void>&) {}

extern "C" ZEL_EXPORT void start_failing(std::shared_ptr<void>& component) {
    component = std::make_shared<telling>("failed");
    throw own_failure();
}
