// A plug-in whose handlers, answers and monitors a host keeps in use while it unloads it,
// for plug_in_unload.cpp.
#include <event_routing/client.h>

#include <framework/serialization/payload.h>

#include <memory>
#include <string>
#include <vector>

struct plug_in_answer {
    std::string text;
};

template <>
struct zel::serialization::record<plug_in_answer> {
    static constexpr std::string_view name = "struct plug_in_answer";
    static constexpr std::tuple fields{field("text", &plug_in_answer::text)};
};

namespace {

using namespace zel::event_routing;

// Its destructor is code of the plug-in that nobody but the callable's owner runs.
struct captured {
    ~captured() { text = "destroyed"; }
    std::string text = "captured";
};

using cookies = std::vector<std::shared_ptr<zel::tasklib::keep_registered>>;

} // namespace

extern "C" {

// A handler that has only an asynchronous part.
ZEL_EXPORT void listen(const std::shared_ptr<zel::tasklib::task_queue_ifc>& queue, cookies& held) {
    held.push_back(
        get_event_routing(*get_module())
            ->RegisterEventHandler(
                queue, "plug_in.listens", nullptr,
                [kept = std::make_shared<captured>()](auto&&...) { kept->text = "called"; },
                "only later"));
}

// A typed answer, with the data types that belong to it.
ZEL_EXPORT void answer(cookies& held) {
    held.push_back(
        get_request_routing(*get_module())
            ->RegisterRequestHandler(
                "plug_in.answers", 0,
                [kept = std::make_shared<captured>()](auto&, auto&, auto& response, auto&&...) {
                    response = zel::serialization::make_payload(plug_in_answer{kept->text});
                    return true;
                },
                "answers"));
}

ZEL_EXPORT void watch(cookies& held) {
    held.push_back(get_event_routing(*get_module())
                       ->RegisterMonitorHandler([kept = std::make_shared<captured>()](auto&&...) {
                           kept->text = "told";
                       }));
}
}
