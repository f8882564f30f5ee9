// What a bridge receives from a network: envelopes, and subjects, which begin with "er". What is
// read is written as the same bytes again.
#include "fuzz/fuzz_support.h"
#include "libraries/nats_bridge/envelope.h"
#include "libraries/nats_bridge/subject.h"

#include <span>
#include <string_view>

namespace zel::fuzz {

namespace {

using namespace event_routing::nats;

// A path of an event takes 12 bytes at least and 40 in memory, in a vector that grows.
constexpr memory_limit limit{96};

void check_subject(std::string_view subject) {
    decoded_subject read;
    const auto failure =
        failure_of(limit.of(subject.size()), [&] { read = read_subject(subject); });
    if (failure.empty() && subject.size() <= longest_subject)
        require(subject_of(read.realm, read.kind, read.channel, read.path) == subject,
                "each path has one subject");
}

template <class Envelope>
void check_envelope(std::span<const std::uint8_t> bytes) {
    Envelope read;
    const auto failure =
        failure_of(limit.of(bytes.size()), [&] { read = read_envelope<Envelope>(bytes); });
    if (!failure.empty())
        return;
    const std::string again = envelope_bytes(read);
    require(std::equal(again.begin(), again.end(), bytes.begin(), bytes.end(),
                       [](char left, std::uint8_t right) {
                           return static_cast<std::uint8_t>(left) == right;
                       }),
            "an envelope has one form");
}

} // namespace

} // namespace zel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zel::fuzz;
    check_subject({reinterpret_cast<const char*>(data), size});
    check_envelope<event_envelope>({data, size});
    check_envelope<request_envelope>({data, size});
    check_envelope<answer_envelope>({data, size});
    check_envelope<clock_envelope>({data, size});
    check_envelope<claim_envelope>({data, size});
    check_envelope<hello_envelope>({data, size});
    return 0;
}
