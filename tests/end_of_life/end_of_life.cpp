// One way for a process to end per call: end_of_life SCENARIO. The process's own
// exit code and the absence of a crash or hang are half of each check.
#include <event_routing/client.h>

#include <framework/lifetime/basic_singleton.h>
#include <platform/diagnostics.h>
#include <tasklib/keep_registered.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <thread>
#include <vector>

namespace {

using namespace zel;
using namespace zel::event_routing;

void require(bool condition, const char* what) {
    if (condition)
        return;
    std::cerr << "failed: " << what << '\n';
    std::_Exit(1);
}

// The texts of the failures that end-of-life actions report.
class reports {
public:
    std::vector<std::string> texts;

private:
    platform::exception_observer observer_{[this](auto code, auto arguments) {
        if (code != platform::diagnostic::text_report || arguments.size() != 3)
            return;
        require(arguments[0] == 31 &&
                    std::string(reinterpret_cast<const char*>(arguments[1]), arguments[0]) ==
                        "Atexit action throws exception!",
                "text of the report");
        texts.push_back(reinterpret_cast<const std::exception*>(arguments[2])->what());
    }};
};

auto counting_handler(std::atomic<int>& calls) {
    return [&calls](const auto&, const auto&, const auto&) {
        ++calls;
        return true;
    };
}

std::string failure_of_creation() {
    try {
        get_module();
    } catch (const lifetime::object_already_destroyed& failure) {
        return failure.what();
    }
    return "none";
}

std::atomic<int> calls{0};

int clean_end() {
    reports seen;
    auto module = get_module();
    auto events = get_event_routing(*module);
    auto cookie = events->RegisterEventHandler(nullptr, "a", counting_handler(calls), nullptr, "d");
    module.reset();
    on_morna_dll_unload();
    require(seen.texts.empty(), "nothing to report");
    require(failure_of_creation() == "Object was already destroyed", "no module after its end");
    // A service and its handlers outlive the module.
    events->BroadcastEvent("a", nullptr, {}, nullptr);
    require(calls == 1, "the handler is still reached");
    cookie.reset();
    events->BroadcastEvent("a", nullptr, {}, nullptr);
    require(calls == 1, "the dropped handler is not");
    return 0;
}

int still_held() {
    reports seen;
    const auto module = get_module();
    on_morna_dll_unload();
    require(seen.texts ==
                std::vector<std::string>{"Module being destroyed is still held somewhere else"},
            "the holder is reported");
    require(failure_of_creation() == "Object was already destroyed", "no new reference");
    require(module->NextEventMessageId() == 1, "the held module works");
    get_event_routing(*module)->BroadcastEvent("a", nullptr, {}, nullptr);
    return 0;
}

// Static objects of the client: gone before or after the library's own end,
// depending on when they were made.
std::shared_ptr<IModule> global_module;
std::shared_ptr<tasklib::keep_registered> global_cookie;

int exit_without_clean_up() {
    global_module = get_module();
    static const auto local_static = get_module();
    const auto events = get_event_routing(*global_module);
    global_cookie =
        events->RegisterEventHandler(nullptr, "a.*", counting_handler(calls), nullptr, "d");
    events->RegisterEventHandler(
        nullptr, "a", [](auto&&...) -> bool { throw 1; }, nullptr, "t");
    // Broadcasts and registers until the process is gone.
    std::thread([events] {
        for (;;) {
            const auto cookie =
                events->RegisterEventHandler(nullptr, "a.b", counting_handler(calls), nullptr, "");
            events->BroadcastEvent("a.b;a", nullptr, {}, nullptr);
        }
    }).detach();
    while (calls == 0)
        std::this_thread::yield();
    return 0;
}

int exit_inside_a_handler() {
    const auto module = get_module();
    const auto events = get_event_routing(*module);
    const auto cookie = events->RegisterEventHandler(
        nullptr, "a", [](auto&&...) -> bool { std::exit(0); }, nullptr, "exits");
    events->BroadcastEvent("a", nullptr, {}, nullptr);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, int (*)()> scenarios = {
        {"clean_end", clean_end},
        {"still_held", still_held},
        {"exit_without_clean_up", exit_without_clean_up},
        {"exit_inside_a_handler", exit_inside_a_handler},
    };
    const auto chosen = scenarios.find(argc > 1 ? argv[1] : "");
    return chosen == scenarios.end() ? 2 : chosen->second();
}
