// Payloads: a thousand records as bytes and back, making holders, reading values.
#include "benchmarks/peers/payload_cases.h"
#include "framework/serialization/payload.h"

#include <benchmark/benchmark.h>

namespace zel::serialization {

using benchmarks::entries;
using benchmarks::entry;

template <>
struct record<entry> {
    static constexpr std::string_view name = "struct entry";
    static constexpr std::tuple fields{field("path", &entry::path),
                                       field("description", &entry::description),
                                       field("number", &entry::number)};
};

namespace {

byte_vector write(const entries& all) {
    byte_vector bytes;
    SerializableData<entries>().Serialize(all, bytes);
    return bytes;
}

entries read(const byte_vector& bytes) {
    entries all;
    SerializableData<entries>().Deserialize(all, bytes);
    return all;
}

const bool registered = (benchmarks::register_payload_cases<write, read>("event_routing"), true);

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

struct atomic_and_value {
    std::atomic<std::uint32_t> state{1};
    entry value;
};

// Calls of their own, so that neither side is moved out of the loop.
[[gnu::noinline]] const entry& payload_value(const SerializableData<entry>& data) {
    return data.Value();
}

[[gnu::noinline]] const entry& value_after_atomic_load(const atomic_and_value& data) {
    benchmark::DoNotOptimize(data.state.load(std::memory_order_acquire));
    return data.value;
}

void payload_value_again(benchmark::State& state) {
    SerializableData<entry> data;
    data.MutableValue();
    for (auto _ : state)
        benchmark::DoNotOptimize(&payload_value(data));
}
BENCHMARK(payload_value_again);

void atomic_load_and_call(benchmark::State& state) {
    const atomic_and_value data;
    for (auto _ : state)
        benchmark::DoNotOptimize(&value_after_atomic_load(data));
}
BENCHMARK(atomic_load_and_call);

} // namespace

} // namespace zel::serialization
