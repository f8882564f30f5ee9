// The same messages on one thread and on two, with handlers that share nothing: each adds to
// a variable of its own thread. What is left is what messages of different threads have in
// common.
#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/routing/benchmark_paths.h"
#include "framework/event_routing/src/event_routing/snowballs/snowball_routing_impl.h"

#include <benchmark/benchmark.h>
#include <tasklib/keep_registered.h>

#include <functional>

namespace {

using namespace zel::event_routing;

thread_local std::uint64_t calls_of_this_thread = 0;

const std::string path = "subsystem.component.object.change";

struct services {
    explicit services(std::int64_t handlers) {
        const auto event = [](auto&&...) { return ++calls_of_this_thread > 0; };
        for (; handlers > 0; --handlers)
            cookies.push_back(events->RegisterEventHandler(nullptr, path, event, nullptr, "adds"));
        cookies.push_back(
            events->RegisterEventHandler(nullptr, "another" + path, event, nullptr, "adds"));
        cookies.push_back(requests->RegisterRequestHandler(path, 0, event, "answers"));
        for (const auto& level : path_on_every_level(path))
            cookies.push_back(snowballs->RegisterSnowballHandler(
                level, [](auto&&...) { ++calls_of_this_thread; }, "adds"));
    }

    std::shared_ptr<impl::EventRoutingImpl> events = std::make_shared<impl::EventRoutingImpl>();
    std::shared_ptr<impl::RequestRoutingImpl> requests =
        std::make_shared<impl::RequestRoutingImpl>(std::weak_ptr<IEventRouting>());
    std::shared_ptr<impl::SnowballRoutingImpl> snowballs =
        std::make_shared<impl::SnowballRoutingImpl>();
    std::vector<std::shared_ptr<zel::tasklib::keep_registered>> cookies;
};

// All threads wait for each other where the loop begins and where it ends.
template <class Send>
void on_all_threads(benchmark::State& state, std::int64_t handlers, const Send& send) {
    static std::unique_ptr<services> shared;
    if (state.thread_index() == 0)
        shared = std::make_unique<services>(handlers);
    const std::uint64_t before = calls_of_this_thread;
    for (auto _ : state)
        send(*shared, state.thread_index());
    if (calls_of_this_thread - before < static_cast<std::uint64_t>(state.iterations()))
        state.SkipWithError("a handler was not called");
    if (state.thread_index() == 0)
        shared.reset();
}

void one_path(benchmark::State& state) {
    on_all_threads(state, state.range(0), [](services& to, int) {
        to.events->BroadcastEvent(path, nullptr, {}, nullptr);
    });
}

void a_path_each(benchmark::State& state) {
    static const std::string paths[] = {path, "another" + path};
    on_all_threads(state, 1, [](services& to, int thread) {
        to.events->BroadcastEvent(paths[thread % 2], nullptr, {}, nullptr);
    });
}

void request(benchmark::State& state) {
    on_all_threads(state, 1, [](services& to, int) {
        request_answer answer, error;
        to.requests->SendRequest(path, nullptr, answer, error, {});
    });
}

void snowball(benchmark::State& state) {
    on_all_threads(state, 1, [](services& to, int) {
        snowball_result result, error;
        to.snowballs->SendSnowball(path, nullptr, result, error, {});
    });
}

void add(const char* name, void (*run)(benchmark::State&)) {
    for (const int threads : {1, 2})
        benchmark::RegisterBenchmark((std::string("scaling/") + name).c_str(), run)
            ->Threads(threads)
            ->UseRealTime()
            ->Repetitions(9);
}

const bool is_listed = [] {
    for (const int threads : {1, 2})
        benchmark::RegisterBenchmark("scaling/one_path", &one_path)
            ->ArgName("handlers")
            ->Arg(1)
            ->Arg(100)
            ->Threads(threads)
            ->UseRealTime()
            ->Repetitions(9);
    add("a_path_each", &a_path_each);
    add("request", &request);
    add("snowball", &snowball);
    return true;
}();

} // namespace
