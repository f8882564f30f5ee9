// The second program that docs/guide.md quotes: asynchronous parts, queues, monitors,
// cumulative events, statistics.
#include <event_routing/client.h>
#include <event_routing/typed.h>

#include <framework/log/log_module.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <vector>

using namespace std::chrono_literals;
using namespace zel::event_routing;

static void require(bool condition, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "asynchronous_example: %s\n", what);
    std::exit(1);
}

class report_sink final : public zel::log::ILogSink {
public:
    void Write(const zel::log::record& entry) override {
        const std::lock_guard inside(guard);
        if (entry.text.starts_with("Event routing statistic"))
            reports.emplace_back(entry.text);
    }

    std::mutex guard;
    std::vector<std::string> reports;
};

int main() {
    const auto module = get_module();
    const auto events = get_event_routing(*module);
    const auto log = zel::log::get_log_module();
    const auto sink = std::make_shared<report_sink>();
    const auto following = log->AddSink(sink, zel::log::severity::statistics);

    const auto queue = events->CreateTaskQueue();
    std::vector<std::string> indexed; // no lock: the parts of one queue never overlap
    const auto indexer = events->RegisterEventHandler(
        queue, "document.*",
        [](const std::string& path, const auto&, const auto&) { return path != "document.draft"; },
        [&](const std::string& path, const auto&, const auto&) { indexed.push_back(path); },
        "indexer");
    events->BroadcastEvent("document.draft", nullptr, {}, nullptr);
    events->BroadcastEvent("document.saved", nullptr, {}, nullptr);
    events->BroadcastEvent("document.closed", nullptr, {}, nullptr);

    std::promise<void> all_indexed;
    const auto last = events->RegisterEventHandler(
        queue, "index.flush", nullptr, [&](auto&&...) { all_indexed.set_value(); }, "last");
    events->BroadcastEvent("index.flush", nullptr, {}, nullptr);
    all_indexed.get_future().wait();
    require(indexed == std::vector<std::string>{"document.saved", "document.closed"},
            "in the order of the broadcasts");

    routing_parameters wait_a_second;
    wait_a_second[parameter::synchronous] = 1000; // milliseconds
    events->BroadcastEvent("document.printed", nullptr, wait_a_second, nullptr);
    require(indexed.back() == "document.printed", "done when the call returns");

    std::mutex guard;
    std::vector<std::string> trace;
    auto tracer = events->RegisterMonitorHandler([&](const std::string& path, const event_data&,
                                                     const routing_parameters& about,
                                                     const monitor::event_handling_info_2& info) {
        const std::lock_guard inside(guard);
        trace.push_back(info.handler_info ? info.handler_info->second + " " + path
                                          : "broadcast " + path);
        require(about.contains(parameter::monitoring_message_id),
                "all of one message have its number");
        require(info.elapsed_time >= 0, "seconds");
    });
    events->BroadcastEvent("document.printed", nullptr, wait_a_second, nullptr);
    require(trace == std::vector<std::string>{"Sync: indexer document.printed",
                                              "Async: indexer document.printed",
                                              "broadcast document.printed"},
            "every part and the whole");
    tracer.reset();

    std::promise<std::int64_t> changes;
    using Changed = Event<std::string>; // the latest name of the file
    const auto preview = events->RegisterEventHandler(
        nullptr, "file.changed",
        Changed::SynchronousPart([&](const std::string&, const message_head& head) {
            changes.set_value(head.parameters.at(parameter::cumulative_event_count).number);
            return true;
        }),
        nullptr, "preview");
    for (const char* name : {"a", "b", "c"})
        Changed::BroadcastCumulative(*events, 500ms, "file.changed", name);
    require(changes.get_future().get() == 3, "one delivery for three calls");

    for (int i = 0; i < 1000; ++i)
        events->BroadcastEvent("tick", nullptr, {}, nullptr);
    require(sink->reports.size() == 1, "a report for a thousand broadcasts");

    require(events->EndAndWaitForHandlers(), "nothing runs any more");
    events->BroadcastEvent("document.saved", nullptr, wait_a_second, nullptr);
    require(indexed.back() == "document.printed", "no asynchronous part starts after the end");
}
