// Bytes that are a map of routing parameters are, once written, the same map and the
// same bytes for ever.
#include "framework/event_routing/src/event_routing/module/parameter_bytes.h"
#include "fuzz/fuzz_support.h"

#include <algorithm>
#include <string_view>

namespace zel::fuzz {

namespace {

using namespace event_routing;

// A record of 16 bytes makes a node of 136.
constexpr memory_limit limit{16};

bool are_same(const routing_parameters& left, const routing_parameters& right) {
    return std::ranges::equal(left, right, [](const auto& a, const auto& b) {
        return a.first == b.first && a.second.number == b.second.number &&
               a.second.text == b.second.text;
    });
}

void check(std::span<const std::uint8_t> bytes) {
    routing_parameters parameters;
    const auto failure = failure_of(limit.of(bytes.size()),
                                    [&] { parameters = impl::parameters_from_bytes(bytes); });
    if (!failure.empty())
        return require(failure == "Invalid binary event routing data", "there is one failure");
    require(std::ranges::all_of(
                parameters,
                [](const auto& one) { return one.second.text.empty() || one.second.number == 0; }),
            "a value is a number or a text");
    const auto written = impl::parameters_to_bytes(parameters);
    require(written.size() <= bytes.size(), "writing adds nothing");
    const auto again = impl::parameters_from_bytes(written);
    require(are_same(again, parameters), "bytes keep the parameters");
    require(impl::parameters_to_bytes(again) == written, "written bytes stay");
}

} // namespace

} // namespace zel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zel::fuzz::check({data, size});
    return 0;
}
