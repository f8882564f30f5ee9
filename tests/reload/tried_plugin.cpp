// Components for component_host_test.cpp, one for each exported function.
#include "tests/reload/plugin.h"

using namespace zel::test;
using namespace zel::serialization;

namespace {

// A type of this library alone, which must not outlive it.
struct own_failure : std::exception {
    const char* what() const noexcept override { return "no paper"; }
};

struct keepsake {
    std::string text;
};

} // namespace

template <>
struct zel::serialization::record<keepsake> {
    static constexpr std::string_view name = "struct keepsake";
    static constexpr std::tuple fields{field("text", &keepsake::text)};
};

namespace {

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
    const auto counts = [](auto&, auto&, request_answer& response, auto&, auto&) {
        static std::int64_t asked_before = 0;
        response = make_payload(std::to_string(asked_before++));
        return true;
    };
    const auto gives = [](auto&, auto&, request_answer& response, auto&, auto&) {
        response = make_payload(keepsake{"of a visit"});
        return true;
    };
    made->registered = {to.events->RegisterEventHandler(nullptr, "slow", slow, nullptr, "is slow"),
                        to.requests->RegisterRequestHandler("asked.before", 0, counts, "counts"),
                        to.requests->RegisterRequestHandler("keepsake", 0, gives, "gives")};
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
