// What is measured of every bus that is compared with this library, written once.
//
// A bus takes the path, the payload and the parameters of a broadcast to the
// handlers that match the path. A plain signal, which knows no paths, passes for a
// bus in the cases that have one path only.
#pragma once

#include "framework/event_routing/src/event_routing/routing/benchmark_paths.h"

#include <event_routing/event_routing.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <concepts>
#include <memory>
#include <string>
#include <vector>

namespace zel::benchmarks {

using event_routing::event_data;
using event_routing::routing_parameters;

/// What a peer that hands over one argument hands over.
struct message {
    const std::string& path;
    const event_data& data;
    const routing_parameters& parameters;
};

/// As little work as can still be checked.
struct counting_handler {
    std::atomic<std::uint64_t>* calls;

    void operator()(const std::string& path, const event_data& data,
                    const routing_parameters& parameters) const {
        benchmark::DoNotOptimize(&path);
        benchmark::DoNotOptimize(&data);
        benchmark::DoNotOptimize(&parameters);
        calls->fetch_add(1, std::memory_order_relaxed);
    }
};

/// A handler is subscribed until its token goes. A plain signal may rely on the
/// token going with it.
template <class Bus>
concept bus = std::default_initializable<Bus> &&
    requires(Bus subject, counting_handler handler, const message& sent) {
    { subject.subscribe(sent.path, handler) } -> std::same_as<typename Bus::token>;
    subject.broadcast(sent.path, sent.data, sent.parameters);
};

class no_content final : public serialization::IDataHolder {
public:
    std::shared_ptr<serialization::IData> GetData() const override { return nullptr; }
};

/// A bus and the handlers that listen to it.
template <bus Bus>
class audience {
public:
    void subscribe(const std::string& path, std::int64_t handlers = 1) {
        for (; handlers > 0; --handlers)
            tokens_.push_back(bus_.subscribe(path, {&calls_}));
    }

    void subscribe_and_drop(const std::string& path) {
        [[maybe_unused]] const auto token = bus_.subscribe(path, {&calls_});
    }

    void broadcast(const std::string& path) { bus_.broadcast(path, data_, parameters_); }

    /// A bus that loses calls is fast.
    void check_calls(benchmark::State& state, std::int64_t expected) const {
        if (calls_ != static_cast<std::uint64_t>(expected))
            state.SkipWithError("a handler was not called once per broadcast");
    }

private:
    // On a line of its own: the handlers write it all the time.
    alignas(64) std::atomic<std::uint64_t> calls_{0};
    alignas(64) Bus bus_;
    std::vector<typename Bus::token> tokens_;
    const event_data data_ = std::make_shared<no_content>();
    const routing_parameters parameters_{};
};

inline const std::string& one_path() {
    static const std::string path = "subsystem.component.object.change";
    return path;
}

inline std::vector<std::string> many_paths(std::int64_t count) {
    std::vector<std::string> paths;
    const int registered = static_cast<int>(count);
    for (int i = 0; i < registered; ++i)
        paths.push_back(event_routing::four_level_path(i, registered));
    return paths;
}

/// In turn to each path. The first round, which is not measured, is for whatever a
/// bus makes on a path's first broadcast.
template <class Bus>
void broadcast_in_turn(benchmark::State& state, audience<Bus>& listeners,
                       const std::vector<std::string>& paths, std::int64_t handlers_per_path) {
    for (const auto& path : paths)
        listeners.broadcast(path);
    std::size_t next = 0;
    for (auto _ : state) {
        listeners.broadcast(paths[next]);
        if (++next == paths.size())
            next = 0;
    }
    const auto rounds = static_cast<std::int64_t>(paths.size()) + state.iterations();
    listeners.check_calls(state, rounds * handlers_per_path);
}

template <class Bus>
void on_one_path(benchmark::State& state) {
    audience<Bus> listeners;
    listeners.subscribe(one_path(), state.range(0));
    broadcast_in_turn(state, listeners, {one_path()}, state.range(0));
}

template <class Bus>
void on_four_levels(benchmark::State& state) {
    audience<Bus> listeners;
    for (const auto& level : event_routing::path_on_every_level(one_path()))
        listeners.subscribe(level, state.range(0) / 4);
    broadcast_in_turn(state, listeners, {one_path()}, state.range(0));
}

template <class Bus>
void hot_path(benchmark::State& state) {
    audience<Bus> listeners;
    const auto paths = many_paths(state.range(0));
    for (const auto& path : paths)
        listeners.subscribe(path);
    broadcast_in_turn(state, listeners, {paths[paths.size() / 2]}, 1);
}

template <class Bus>
void cycling(benchmark::State& state) {
    audience<Bus> listeners;
    const auto paths = many_paths(state.range(0));
    for (const auto& path : paths)
        listeners.subscribe(path);
    broadcast_in_turn(state, listeners, paths, 1);
}

template <class Bus>
void two_threads(benchmark::State& state) {
    // All threads wait for each other where the loop begins and where it ends.
    static std::unique_ptr<audience<Bus>> listeners;
    if (state.thread_index() == 0) {
        listeners = std::make_unique<audience<Bus>>();
        listeners->subscribe(one_path(), state.range(0));
        listeners->broadcast(one_path());
    }
    for (auto _ : state)
        listeners->broadcast(one_path());
    if (state.thread_index() == 0) {
        const std::int64_t rounds = 1 + state.iterations() * state.threads();
        listeners->check_calls(state, rounds * state.range(0));
        listeners.reset();
    }
}

/// Ten broadcasts and one handler that comes and goes.
template <class Bus>
void churn(benchmark::State& state) {
    audience<Bus> listeners;
    for (const auto& level : event_routing::path_on_every_level(one_path()))
        listeners.subscribe(level);
    for (auto _ : state) {
        for (int i = 0; i < 10; ++i)
            listeners.broadcast(one_path());
        listeners.subscribe_and_drop(one_path());
    }
    listeners.check_calls(state, state.iterations() * 10 * 4);
}

inline benchmark::internal::Benchmark* add_case(const std::string& peer, const char* what,
                                                void (*run)(benchmark::State&)) {
    return benchmark::RegisterBenchmark(("peers/" + peer + "/" + what).c_str(), run)
        ->Repetitions(9);
}

/// Lists the cases that need no path under "peers/PEER/".
template <bus Bus>
bool compare_signal(const std::string& peer) {
    add_case(peer, "one_path", on_one_path<Bus>)->ArgName("handlers")->Arg(1)->Arg(4)->Arg(100);
    return true;
}

/// Lists all cases under "peers/PEER/".
template <bus Bus>
bool compare_bus(const std::string& peer) {
    compare_signal<Bus>(peer);
    add_case(peer, "four_levels", on_four_levels<Bus>)->ArgName("handlers")->Arg(4)->Arg(100);
    for (auto* const among :
         {add_case(peer, "hot_path", hot_path<Bus>), add_case(peer, "cycling", cycling<Bus>)})
        among->ArgName("registered")
            ->Arg(1'000)
            ->Arg(10'000)
            ->Arg(100'000)
            ->Iterations(200'000); // to find a number would register them all each time
    add_case(peer, "two_threads", two_threads<Bus>)
        ->ArgName("handlers")
        ->Arg(1)
        ->Arg(100)
        ->Threads(2)
        ->Repetitions(15) // how two threads meet differs from run to run
        ->UseRealTime();
    add_case(peer, "churn", churn<Bus>);
    return true;
}

} // namespace zel::benchmarks
