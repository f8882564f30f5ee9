// Finding data types by name.
#include "libraries/serialization/name_registry.h"

#include "framework/serialization/bin_serialization_module.h"

#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace zel::serialization {

namespace {

constexpr int types = 1000;

std::string type_number(int number) {
    return "struct zel::event_routing::type_" + std::to_string(number);
}

void data_type_find(benchmark::State& state) {
    const auto registry = std::make_shared<name_registry<data_factory>>();
    std::vector<std::shared_ptr<tasklib::keep_registered>> cookies;
    std::vector<std::string> names;
    for (int i = 0; i < types; ++i) {
        names.push_back(type_number(i));
        cookies.push_back(registry->add(
            names.back(), [] { return nullptr; }, callable_images{}, "factory"));
    }
    for (std::size_t i = 0; auto _ : state)
        benchmark::DoNotOptimize(registry->find(names[++i % types]));
}
BENCHMARK(data_type_find);

void unordered_map_find_type(benchmark::State& state) {
    std::unordered_map<std::string, int> map;
    std::vector<std::string> names;
    for (int i = 0; i < types; ++i) {
        names.push_back(type_number(i));
        map.emplace(names.back(), i);
    }
    for (std::size_t i = 0; auto _ : state)
        benchmark::DoNotOptimize(map.find(names[++i % types]));
}
BENCHMARK(unordered_map_find_type);

} // namespace

} // namespace zel::serialization
