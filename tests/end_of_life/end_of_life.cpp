// One way for a process to end per call: end_of_life SCENARIO. The process's own
// exit code and the absence of a crash or hang are half of each check.
#include "tests/support/failure_of.h"
#include "tests/support/log_capture.h"

#include <event_routing/client.h>
#include <event_routing/window_work.h>

#include <framework/lifetime/basic_singleton.h>
#include <framework/serialization/payload.h>
#include <platform/diagnostics.h>
#include <platform/window.h>
#include <tasklib/keep_registered.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <thread>

namespace {

using namespace zel;
using namespace zel::event_routing;

void require(bool condition, const char* what) {
    if (condition)
        return;
    std::cerr << "failed: " << what << '\n';
    std::_Exit(1);
}

void require_no_new_module() {
    require(test::failure_of([] { get_module(); }) == "Object was already destroyed",
            "no module after its end");
}

std::atomic<int> calls{0};

bool count(const std::string&, const event_data&, const routing_parameters&) {
    ++calls;
    return true;
}

// How the failures of end-of-life actions are reported.
std::string reported;
const platform::exception_observer observer([](auto, auto arguments) {
    if (arguments.size() < 3)
        return; // another report
    reported += std::string(reinterpret_cast<const char*>(arguments[1]), arguments[0]) + " " +
                reinterpret_cast<const std::exception*>(arguments[2])->what();
});

int clean_end() {
    require(!find_module(), "nobody has made one, and looking makes none");
    auto module = get_module();
    require(find_module() == module, "the one that was made");
    const auto events = get_event_routing(*module);
    auto cookie = events->RegisterEventHandler(nullptr, "a", count, nullptr, "d");
    // Goes with the last of those that did not begin, which the first waits for.
    auto pending = serialization::make_payload(std::string("pending"));
    const std::weak_ptr<serialization::IDataHolder> left = pending;
    std::atomic<int> begun{0}, ended{0};
    const auto slow = events->RegisterEventHandler(
        events->CreateTaskQueue(), "slow", nullptr,
        [&](auto&&...) {
            ++begun;
            while (!left.expired())
                std::this_thread::yield();
            ++ended;
        },
        "d");
    events->BroadcastEvent("slow", nullptr, {}, nullptr);
    for (int i = 0; i < 9; ++i)
        events->BroadcastEvent("slow", pending, {}, nullptr);
    pending.reset();
    events->BroadcastCumulativeEvent({}, "a", nullptr, {}, nullptr);
    while (begun == 0)
        std::this_thread::yield();
    module.reset();
    on_morna_dll_unload();
    require(reported.empty(), "nothing to report");
    require(begun == 1 && ended == 1, "what runs is waited for, the rest is canceled");
    require_no_new_module();
    require(!find_module(), "nothing to find after the end");
    // A service and its handlers outlive the module.
    events->BroadcastEvent("a", nullptr, {}, nullptr);
    cookie.reset();
    events->BroadcastEvent("a", nullptr, {}, nullptr);
    require(calls == 1, "reached until dropped");
    return 0;
}

int still_held() {
    const auto module = get_module();
    const auto cookie = get_request_routing(*module)->RegisterRequestHandler(
        "a.b", 0, [](auto&&...) { return false; }, "forgotten");
    const test::log_capture log(log::severity::failed_operation);
    on_morna_dll_unload();
    require(reported == "Atexit action throws exception! "
                        "Module being destroyed is still held somewhere else",
            "reported");
    const auto logged = log.texts();
    require(logged.size() == 1 && logged[0].starts_with("5 The module cannot end: 1 reference") &&
                logged[0].ends_with("are registered: requests 'a.b' (forgotten)"),
            "who may hold it is logged");
    require_no_new_module();
    require(!find_module(), "it is for nobody any more");
    require(module->NextEventMessageId() == 1, "the held module works");
    return 0;
}

int payload_still_held() {
    const auto events = get_event_routing(*get_module());
    auto data = serialization::make_payload(std::string("a"));
    on_morna_dll_unload();
    require(reported == "Atexit action throws exception! "
                        "Attempt to unload a module which is still used by another",
            "the routing library does not give back what payloads need");
    events->BroadcastEvent("a", data, {}, nullptr);
    data = serialization::make_payload(std::string("b"));
    std::string scratch;
    require(*serialization::GetDataValue(data, scratch) == "b", "the client goes on");
    data.reset();

    lifetime::run_end_of_life_actions(lifetime::unload_threshold);
    require(serialization::get_bin_serialization_module()->CreateData(type_name<std::string>()) ==
                nullptr,
            "the client's types go first");
    lifetime::run_end_of_life_actions(lifetime::host_threshold);
    require(test::failure_of([] { serialization::get_json_conversion_module(); }) ==
                "JSON Conversion Module already unloaded.",
            "gone for the client, too");
    return 0;
}

// Static objects of the client: gone before or after the library's own end,
// depending on when they were made.
std::shared_ptr<IModule> global_module;
std::shared_ptr<serialization::IDataHolder> global_payload;
std::shared_ptr<tasklib::keep_registered> global_cookie;

int exit_without_clean_up() {
    global_module = get_module();
    global_payload = serialization::make_payload(std::string("a"));
    static const auto local_static = get_module();
    const auto events = get_event_routing(*global_module);
    global_cookie = events->RegisterEventHandler(
        events->CreateTaskQueue(), "a.*", count, [](auto&&...) {}, "d");
    events->BroadcastCumulativeEvent({}, "a", nullptr, {}, nullptr);
    // Broadcasts and registers until the process is gone.
    std::thread([events, data = global_payload] {
        for (;;) {
            const auto cookie = events->RegisterEventHandler(nullptr, "a.b", count, nullptr, "");
            events->BroadcastEvent("a.b;a", data, {}, nullptr);
        }
    }).detach();
    while (calls == 0)
        std::this_thread::yield();
    return 0;
}

int exit_inside_a_handler() {
    const auto events = get_event_routing(*get_module());
    const auto cookie = events->RegisterEventHandler(
        nullptr, "a", [](auto&&...) -> bool { std::exit(0); }, nullptr, "exits");
    events->BroadcastEvent("a", nullptr, {}, nullptr);
    return 1;
}

// Exits with a window of the main thread, to which another thread sends.
int exit_with_windows() {
    static const auto events = get_event_routing(*get_module());
    static std::weak_ptr<IInWndProcHandling> work;
    {
        const auto made = get_in_wnd_proc_handling(*get_module(), platform::create_window());
        work = made;
        global_cookie = made->KeepHandlerRegistered(
            events->RegisterEventHandler(made->GetTaskQueue(), "a", count, nullptr, "d"));
    }
    std::thread([own = work] {
        while (const auto held = own.lock())
            send_to_window(*held, [] { ++calls; });
    }).detach();
    std::atexit([] {
        while (!events->GetEventHandlers().empty()) // the other thread may be the last to let go
            std::this_thread::yield();
    });
    while (calls == 0)
        platform::dispatch_messages();
    return 0;
}

} // namespace

int main(int, char** argv) {
    const std::map<std::string, int (*)()> scenarios = {
        {"clean_end", clean_end},
        {"still_held", still_held},
        {"payload_still_held", payload_still_held},
        {"exit_without_clean_up", exit_without_clean_up},
        {"exit_inside_a_handler", exit_inside_a_handler},
        {"exit_with_windows", exit_with_windows},
    };
    return scenarios.at(argv[1])();
}
