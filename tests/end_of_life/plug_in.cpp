// A plug-in whose handlers, answers and monitors a host keeps in use while it unloads it,
// for plug_in_unload.cpp.
#include "generic/tasklib/src/tasks/task_library.h"

#include <event_routing/client.h>

#include <framework/log/log_module.h>
#include <framework/serialization/payload.h>
#include <platform/diagnostics.h>

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

using cookies = std::vector<std::shared_ptr<void>>;

// Calls the host, which stands still in there.
struct standing_sink final : zel::log::ILogSink {
    explicit standing_sink(void (*stand)()) : stand_still(stand) {}
    void Write(const zel::log::record&) override {
        stand_still();
        kept->text = "written";
    }

    void (*const stand_still)();
    const std::shared_ptr<captured> kept = std::make_shared<captured>();
};

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

ZEL_EXPORT void make_data(cookies& held, void (*stand_still)()) {
    held.push_back(zel::serialization::get_bin_serialization_module()->RegisterDataType(
        "plug_in.data", [=, kept = std::make_shared<captured>()] {
            stand_still();
            kept->text = "made";
            return nullptr;
        }));
}

ZEL_EXPORT void observe(cookies& held, void (*stand_still)()) {
    held.push_back(std::make_shared<zel::platform::exception_observer>(
        [=, kept = std::make_shared<captured>()](auto&&...) {
            stand_still();
            kept->text = "observed";
        }));
}

ZEL_EXPORT void hear_failures() {
    zel::tasklib::get_tasks_module()->log_exception_function().set(
        [kept = std::make_shared<captured>()](auto&&) { kept->text = "heard"; });
}

ZEL_EXPORT void write_log(cookies& held, void (*stand_still)()) {
    held.push_back(
        zel::log::get_log_module()->AddSink(std::make_shared<standing_sink>(stand_still), 0));
}
}
