#include "framework/threading/recursive_shared_mutex.h"

#include <benchmark/benchmark.h>

#include <mutex>

namespace {

using zel::threading::recursive_shared_mutex;

void std_mutex_pair(benchmark::State& state) {
    static std::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        benchmark::DoNotOptimize(mutex);
        mutex.unlock();
    }
}
BENCHMARK(std_mutex_pair)->Name("std_mutex_pair")->UseRealTime();

void shared_hold(benchmark::State& state) {
    static recursive_shared_mutex lock;
    for (auto _ : state) {
        lock.lock_shared();
        lock.unlock_shared();
    }
}
BENCHMARK(shared_hold)->Name("shared_hold")->Threads(1)->Threads(2)->UseRealTime();

void exclusive_hold(benchmark::State& state) {
    recursive_shared_mutex lock;
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
    }
}
BENCHMARK(exclusive_hold)->Name("exclusive_hold");

} // namespace
