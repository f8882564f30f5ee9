#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/routing/benchmark_paths.h"

#include <benchmark/benchmark.h>

#include <array>
#include <unordered_map>

namespace {

using zel::event_routing::four_level_path;
using zel::event_routing::path_on_every_level;
using zel::event_routing::impl::event_routing_node;

void add(event_routing_node& map, const std::string& path) {
    using zel::event_routing::impl::registration_path;
    map.InsertHandler(registration_path(path), event_routing_node::make_item({}, {}, "handler"));
}

void collect_many(benchmark::State& state, const event_routing_node& map, const std::string& path) {
    for (auto _ : state) {
        std::array<std::byte, 1024> buffer;
        std::pmr::monotonic_buffer_resource memory(buffer.data(), buffer.size());
        event_routing_node::collected_handlers found(&memory);
        map.CollectHandlers(path, found);
        benchmark::DoNotOptimize(found.data());
    }
}

void unordered_map_find(benchmark::State& state) {
    const int registered = static_cast<int>(state.range(0));
    std::unordered_map<std::string, int> map;
    for (int i = 0; i < registered; ++i)
        map.emplace(four_level_path(i, registered), i);
    const std::string path = four_level_path(registered / 2, registered);
    for (auto _ : state)
        benchmark::DoNotOptimize(map.find(path));
}
BENCHMARK(unordered_map_find)
    ->Name("unordered_map_find")
    ->ArgName("registered")
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000);

void collect(benchmark::State& state) {
    const int registered = static_cast<int>(state.range(0));
    event_routing_node map;
    const int hot = registered / 2;
    for (int i = 0; i < registered; ++i)
        if (i != hot)
            add(map, four_level_path(i, registered));
    for (const auto& level : path_on_every_level(four_level_path(hot, registered)))
        add(map, level);
    collect_many(state, map, four_level_path(hot, registered));
}
BENCHMARK(collect)->Name("collect")->ArgName("registered")->Arg(1'000)->Arg(10'000)->Arg(100'000);

void collect_at_depth(benchmark::State& state) {
    event_routing_node map;
    std::string path = "subnode";
    for (int depth = 1; depth < state.range(0); ++depth)
        path += ".subnode";
    add(map, path);
    collect_many(state, map, path);
}
BENCHMARK(collect_at_depth)->Name("collect")->ArgName("depth")->Arg(1)->Arg(2)->Arg(4)->Arg(8);

void collect_handlers(benchmark::State& state) {
    event_routing_node map;
    for (int i = 0; i < state.range(0); ++i)
        add(map, "a.b.c.d");
    collect_many(state, map, "a.b.c.d");
}
BENCHMARK(collect_handlers)->Name("collect")->ArgName("handlers")->Arg(1)->Arg(4)->Arg(100);

} // namespace
