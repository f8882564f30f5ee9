#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include <benchmark/benchmark.h>
#include <tasklib/keep_registered.h>

#include <atomic>

namespace {

using namespace zel::event_routing;

void broadcast(benchmark::State& state) {
    const auto service = std::make_shared<impl::EventRoutingImpl>();
    std::atomic<std::uint64_t> calls{0};
    std::vector<std::shared_ptr<zel::tasklib::keep_registered>> cookies;
    for (int i = 0; i < state.range(0); ++i)
        cookies.push_back(service->RegisterEventHandler(
            nullptr, "subsystem.component.object.change",
            [&](const auto&, const auto&, const auto&) {
                calls.fetch_add(1, std::memory_order_relaxed);
                return true;
            },
            nullptr, "counts"));
    const std::string path = "subsystem.component.object.change";
    for (auto _ : state)
        service->BroadcastEvent(path, nullptr, {}, nullptr);
    if (calls != static_cast<std::uint64_t>(state.iterations() * state.range(0)))
        state.SkipWithError("a handler was not called once per broadcast");
}
BENCHMARK(broadcast)->Name("broadcast")->ArgName("handlers")->Arg(1)->Arg(4)->Arg(100);

void register_and_drop(benchmark::State& state) {
    const auto service = std::make_shared<impl::EventRoutingImpl>();
    for (auto _ : state)
        service->RegisterEventHandler(nullptr, "subsystem.component.object.change", nullptr,
                                      nullptr, "comes and goes");
}
BENCHMARK(register_and_drop)->Name("register_and_drop");

} // namespace
