// Components for component_host_test.cpp, one for each exported function.
#include "tests/reload/plugin.h"

#include <framework/log/log_module.h>
#include <platform/diagnostics.h>

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
    std::vector<std::shared_ptr<void>> registered;
};

// Stays inside for as long as somebody who answers "gate" likes.
struct staying {
    void operator()(auto&&...) const {
        request_answer response, error_response;
        requests.lock()->SendRequest("gate", nullptr, response, error_response,
                                     {{"supress_not_processed_exception", 1}});
    }
    std::weak_ptr<IRequestRouting> requests;
};

struct staying_sink final : zel::log::ILogSink {
    explicit staying_sink(const staying& calls) : stay(calls) {}
    void Write(const zel::log::record& entry) override {
        if (entry.module == "gate")
            stay();
    }
    const staying stay;
};

} // namespace

void start_event_routing_component(std::shared_ptr<void>& component) {
    const auto made = std::make_shared<telling>("first");
    const auto& to = made->to;
    const staying stay{to.requests};
    const auto slow = [=](auto&&...) { return stay(), true; };
    const auto makes = [=] { return stay(), nullptr; };
    const auto counts = [](auto&, auto&, request_answer& response, auto&, auto&) {
        static std::int64_t asked_before = 0;
        response = make_payload(std::to_string(asked_before++));
        return true;
    };
    const auto gives = [](auto&, auto&, request_answer& response, auto&, auto&) {
        response = make_payload(keepsake{"of a visit"});
        return true;
    };
    made->registered = {
        to.events->RegisterEventHandler(nullptr, "slow", slow, nullptr, "is slow"),
        to.requests->RegisterRequestHandler("asked.before", 0, counts, "counts"),
        to.requests->RegisterRequestHandler("keepsake", 0, gives, "gives"),
        get_bin_serialization_module()->RegisterDataType("tried.data", makes),
        std::make_shared<zel::platform::exception_observer>(stay),
        zel::log::get_log_module()->AddSink(std::make_shared<staying_sink>(stay), 0)};
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
