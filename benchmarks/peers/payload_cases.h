// A thousand records as bytes and back: what is measured of every library that is
// compared with this one, written once.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zel::benchmarks {

struct entry {
    std::string path;
    std::string description;
    std::int64_t number = 0;

    bool operator==(const entry&) const = default;
};

using entries = std::vector<entry>;

/// One text fits into a string object, the other one does not.
inline entries thousand_entries() {
    entries made;
    for (int i = 0; i < 1000; ++i)
        made.push_back({"document.page." + std::to_string(i), "title bar", i});
    return made;
}

/// `write` makes new bytes of the records, `read` makes new records of bytes.
template <auto write, auto read>
void register_payload_cases(const std::string& who) {
    benchmark::RegisterBenchmark(("peers/" + who + "/encode").c_str(), [](benchmark::State& state) {
        const entries all = thousand_entries();
        for (auto _ : state)
            benchmark::DoNotOptimize(write(all).data());
    });
    benchmark::RegisterBenchmark(("peers/" + who + "/decode").c_str(), [](benchmark::State& state) {
        const auto bytes = write(thousand_entries());
        if (read(bytes) != thousand_entries())
            state.SkipWithError("records changed on the way");
        for (auto _ : state)
            benchmark::DoNotOptimize(read(bytes).data());
    });
}

} // namespace zel::benchmarks
