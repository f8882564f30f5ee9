// Broadcasts with what the comparison with other libraries leaves out: monitors, tasks,
// very many handlers. A path of four subnodes, a payload, no parameters, handlers that
// count.
#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/routing/benchmark_paths.h"

#include <benchmark/benchmark.h>
#include <tasklib/keep_registered.h>

#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <atomic>
#include <latch>
#include <malloc.h>
#include <thread>

namespace {

using namespace zel::event_routing;
using cookie = std::shared_ptr<zel::tasklib::keep_registered>;

class payload final : public zel::serialization::IDataHolder {
    std::shared_ptr<zel::serialization::IData> GetData() const override { return nullptr; }
};

const std::string usual_path = "subsystem.component.object.change";

struct service {
    void listen(const std::string& path) {
        cookies.push_back(events->RegisterEventHandler(
            nullptr, path,
            [this](const auto&, const auto&, const auto&) {
                calls.fetch_add(1, std::memory_order_relaxed);
                return true;
            },
            nullptr, "counts"));
    }
    void listen(std::int64_t handlers) {
        for (; handlers > 0; --handlers)
            listen(usual_path);
    }
    void broadcast(const std::string& path) {
        events->BroadcastEvent(path, data, no_parameters, nullptr);
    }

    std::shared_ptr<impl::EventRoutingImpl> events = std::make_shared<impl::EventRoutingImpl>();
    const event_data data = std::make_shared<const payload>();
    const routing_parameters no_parameters{};
    alignas(64) std::atomic<std::int64_t> calls{0};
    std::vector<cookie> cookies;
};

void require_calls(benchmark::State& state, const service& all, std::int64_t expected) {
    if (all.calls != expected)
        state.SkipWithError("not every handler was called once per broadcast");
}

zel::platform::clock_reading no_reading() {
    return 0;
}

// Without the readings of clocks, which cost more than all the rest; see the next.
void broadcast_with_monitor(benchmark::State& state) {
    const zel::platform::clock_replacement counter(zel::platform::clock::performance_counter,
                                                   &no_reading);
    const zel::platform::clock_replacement cycles(zel::platform::clock::thread_cycles, &no_reading);
    service all;
    all.listen(state.range(0));
    const auto monitor = all.events->RegisterMonitorHandler([](auto&&...) {});
    for (auto _ : state)
        all.broadcast(usual_path);
    require_calls(state, all, state.iterations() * state.range(0));
}
BENCHMARK(broadcast_with_monitor)
    ->Name("peers/event_routing/with_monitor")
    ->ArgName("handlers")
    ->Arg(1)
    ->Arg(4);

void measurement_clocks(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(impl::measurement().end());
}
BENCHMARK(measurement_clocks);

constexpr std::int64_t tasks_in_a_round = 20'000;

void broadcast_asynchronous(benchmark::State& state) {
    service all;
    std::latch* ended = nullptr;
    all.cookies.push_back(all.events->RegisterEventHandler(
        nullptr, usual_path, nullptr,
        [&](const auto&, const auto&, const auto&) { ended->count_down(); }, "counts"));
    for (auto _ : state) {
        std::latch round(tasks_in_a_round);
        ended = &round;
        for (std::int64_t i = 0; i < tasks_in_a_round; ++i)
            all.broadcast(usual_path);
        round.wait();
    }
    all.cookies.clear(); // waits for the parts
    state.SetItemsProcessed(state.iterations() * tasks_in_a_round);
}
BENCHMARK(broadcast_asynchronous)->UseRealTime()->Unit(benchmark::kMillisecond);

// What such a broadcast has to carry to the other thread, and no more.
void asio_post_event(benchmark::State& state) {
    asio::thread_pool pool(std::thread::hardware_concurrency());
    service all;
    for (auto _ : state) {
        std::latch round(tasks_in_a_round);
        for (std::int64_t i = 0; i < tasks_in_a_round; ++i)
            asio::post(pool, [&round, path = usual_path, data = all.data,
                              parameters = all.no_parameters] { round.count_down(); });
        round.wait();
    }
    state.SetItemsProcessed(state.iterations() * tasks_in_a_round);
}
BENCHMARK(asio_post_event)->UseRealTime()->Unit(benchmark::kMillisecond);

void register_and_drop(benchmark::State& state) {
    service all;
    for (auto _ : state)
        all.events->RegisterEventHandler(nullptr, usual_path, nullptr, nullptr, "comes and goes")
            .reset();
}
BENCHMARK(register_and_drop);

// One handler comes and goes among many while another thread broadcasts.
void churn_among_many(benchmark::State& state) {
    const int registered = static_cast<int>(state.range(0));
    const auto before = mallinfo2();
    service all;
    all.cookies.reserve(static_cast<std::size_t>(registered));
    for (int i = 0; i < registered; ++i)
        all.listen(four_level_path(i, registered));
    const auto after = mallinfo2();
    state.counters["bytes"] =
        static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd) /
        registered;
    std::jthread broadcaster([&](std::stop_token stop) {
        const std::string path = four_level_path(registered / 2, registered);
        while (!stop.stop_requested())
            all.broadcast(path);
    });
    const std::string path = four_level_path(registered / 3, registered);
    for (auto _ : state)
        all.events->RegisterEventHandler(nullptr, path, nullptr, nullptr, "comes and goes").reset();
}
BENCHMARK(churn_among_many)->ArgName("registered")->Arg(100'000)->UseRealTime();

} // namespace
