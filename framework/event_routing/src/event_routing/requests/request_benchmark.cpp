// Requests and snowball passes without monitors. A path of four subnodes among 10 000
// registered ones, no parameters. Named so that they run beside the broadcasts that they
// are compared with.
#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/routing/benchmark_paths.h"
#include "framework/event_routing/src/event_routing/snowballs/snowball_routing_impl.h"

#include <benchmark/benchmark.h>

#include <atomic>

namespace {

using namespace zel::event_routing;
using cookie = std::shared_ptr<zel::tasklib::keep_registered>;

constexpr int registered = 10'000;
const std::string usual_path = four_level_path(registered / 2, registered);

void request(benchmark::State& state) {
    const auto requests =
        std::make_shared<impl::RequestRoutingImpl>(std::weak_ptr<IEventRouting>());
    std::int64_t calls = 0;
    const auto handler = [&](bool answer) {
        return [&calls, answer](auto&&...) {
            ++calls;
            return answer;
        };
    };
    std::vector<cookie> cookies;
    for (int i = 0; i < registered; ++i)
        cookies.push_back(requests->RegisterRequestHandler(four_level_path(i, registered), 0,
                                                           handler(true), "answers"));
    for (std::int64_t i = 0; i < state.range(0); ++i)
        cookies.push_back(
            requests->RegisterRequestHandler(usual_path, 1, handler(false), "declines"));
    request_answer response, error_response;
    const routing_parameters no_parameters;
    for (auto _ : state)
        requests->SendRequest(usual_path, nullptr, response, error_response, no_parameters);
    if (calls != state.iterations() * (state.range(0) + 1))
        state.SkipWithError("not every handler was called once per request");
}
BENCHMARK(request)
    ->Name("peers/event_routing/request")
    ->ArgName("declining")
    ->Arg(0)
    ->Arg(1)
    ->Arg(10);

void snowball(benchmark::State& state) {
    const auto snowballs = std::make_shared<impl::SnowballRoutingImpl>();
    std::int64_t calls = 0;
    std::vector<cookie> cookies;
    for (const auto& path : path_on_every_level(usual_path))
        cookies.push_back(snowballs->RegisterSnowballHandler(
            path, [&](auto&&...) { ++calls; }, "counts"));
    snowball_result response, error_response;
    const routing_parameters no_parameters;
    for (auto _ : state)
        snowballs->SendSnowball(usual_path, nullptr, response, error_response, no_parameters);
    if (calls != state.iterations() * 4)
        state.SkipWithError("not every handler was called once per pass");
}
BENCHMARK(snowball)->Name("peers/event_routing/snowball");

} // namespace
