// Payloads: a thousand records as bytes and back, making holders, reading values,
// finding data types by name.
#include "framework/serialization/payload.h"
#include "libraries/serialization/name_registry.h"

#include <benchmark/benchmark.h>

namespace zel::serialization {

namespace {

struct entry {
    std::string path;
    std::string description;
    std::int64_t number = 0;
};

} // namespace

template <>
struct record<entry> {
    static constexpr std::string_view name = "struct entry";
    static constexpr std::tuple fields{field("path", &entry::path),
                                       field("description", &entry::description),
                                       field("number", &entry::number)};
};

namespace {

std::vector<entry> thousand_entries() {
    std::vector<entry> entries;
    for (int i = 0; i < 1000; ++i)
        entries.push_back({"document.page." + std::to_string(i), "title bar", i});
    return entries;
}

void payload_encode(benchmark::State& state) {
    SerializableData<std::vector<entry>> data;
    const auto entries = thousand_entries();
    for (auto _ : state) {
        byte_vector bytes;
        data.Serialize(entries, bytes);
        benchmark::DoNotOptimize(bytes.data());
    }
}
BENCHMARK(payload_encode);

void payload_decode(benchmark::State& state) {
    SerializableData<std::vector<entry>> data;
    byte_vector bytes;
    data.Serialize(thousand_entries(), bytes);
    for (auto _ : state) {
        std::vector<entry> entries;
        data.Deserialize(entries, bytes);
        benchmark::DoNotOptimize(entries.data());
    }
}
BENCHMARK(payload_decode);

void payload_make(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(make_payload(std::tuple<>()));
}
BENCHMARK(payload_make);

void payload_read(benchmark::State& state) {
    const auto payload = make_payload(entry{"a", "b", 1});
    entry scratch;
    for (auto _ : state)
        benchmark::DoNotOptimize(GetDataValue(payload, scratch));
}
BENCHMARK(payload_read);

void payload_value_again(benchmark::State& state) {
    SerializableData<entry> data;
    data.MutableValue();
    for (auto _ : state)
        benchmark::DoNotOptimize(data.Value().number);
}
BENCHMARK(payload_value_again);

void atomic_load(benchmark::State& state) {
    static std::atomic<std::uint32_t> value{1};
    for (auto _ : state)
        benchmark::DoNotOptimize(value.load(std::memory_order_acquire));
}
BENCHMARK(atomic_load);

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
        cookies.push_back(registry->add(names.back(), [] { return nullptr; }));
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
