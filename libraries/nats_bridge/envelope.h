// What a message carries over the network, as bytes.
//
// An envelope is a record of framework/serialization behind a byte that says what it is and one
// with the version of its form. The parameters are in the library's own byte form and the payload
// in that of its type, so nothing of either is looked at here. Bytes come from strangers: a reader
// throws exceptions::error for what no writer makes, and takes memory in proportion to what is
// there.
#pragma once

#include "framework/serialization/binary_form.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace zel::event_routing::nats {

using byte_vector = std::vector<std::uint8_t>;

/// A payload whose type the reader may not know.
struct carried_payload {
    std::string type;
    byte_vector bytes;

    bool operator==(const carried_payload&) const = default;
};

/// One path of a broadcast. The number counts the messages that its origin has sent along that
/// path; 0 where it does not count them.
struct numbered_path {
    std::string path;
    std::uint64_t number = 0;

    bool operator==(const numbered_path&) const = default;
};

struct event_envelope {
    static constexpr char letter = 'E';

    std::string origin;
    std::uint64_t number = 0; ///< counts the messages of the origin
    std::vector<numbered_path> paths;
    std::uint8_t hops = 0;
    byte_vector parameters;
    std::optional<carried_payload> payload;

    bool operator==(const event_envelope&) const = default;
};

/// Also a snowball on its way to one host.
struct request_envelope {
    static constexpr char letter = 'R';

    std::string origin;
    std::int64_t sent = 0;     ///< nanoseconds of the sender's own clock
    std::int64_t time_out = 0; ///< nanoseconds after that
    std::uint8_t hops = 0;
    std::string path;
    byte_vector parameters;
    std::optional<carried_payload> payload;
    std::optional<carried_payload> response;       ///< of a snowball, so far
    std::optional<carried_payload> error_response; ///< see there

    bool operator==(const request_envelope&) const = default;
};

enum class answer_outcome : std::uint8_t {
    processed = 0,
    declined = 1,
    failed = 2,  ///< a handler threw
    refused = 3, ///< it did not run
};

struct answer_envelope {
    static constexpr char letter = 'A';

    std::uint8_t outcome = 0; ///< an answer_outcome
    std::string host;
    std::string type; ///< of what was thrown
    std::string text; ///< why it failed or was refused
    std::optional<carried_payload> response;
    std::optional<carried_payload> error_response;

    bool operator==(const answer_envelope&) const = default;
};

/// What a host's clock shows, in nanoseconds.
struct clock_envelope {
    static constexpr char letter = 'C';

    std::int64_t now = 0;

    bool operator==(const clock_envelope&) const = default;
};

/// A host that wants to own a pattern, or the answer of one that does.
struct claim_envelope {
    static constexpr char letter = 'O';

    std::string origin;
    std::uint8_t gives_way = 0; ///< 1: to the host that has asked

    bool operator==(const claim_envelope&) const = default;
};

enum class hello_kind : std::uint8_t {
    hello = 0,
    who_is_there = 1, ///< hello, and others are to say it, too
    goodbye = 2,
};

/// What a host tells the others of itself.
struct hello_envelope {
    static constexpr char letter = 'H';

    std::string origin;
    std::uint8_t kind = 0; ///< a hello_kind
    std::vector<std::string> unique_requests;
    std::vector<std::string> snowballs;

    bool operator==(const hello_envelope&) const = default;
};

/// The bytes of an envelope.
template <class Envelope>
std::string envelope_bytes(const Envelope& envelope);

/// The envelope of bytes that somebody has sent.
template <class Envelope>
Envelope read_envelope(std::span<const std::uint8_t> bytes);

extern template std::string envelope_bytes(const event_envelope&);
extern template event_envelope read_envelope(std::span<const std::uint8_t>);
extern template std::string envelope_bytes(const request_envelope&);
extern template request_envelope read_envelope(std::span<const std::uint8_t>);
extern template std::string envelope_bytes(const answer_envelope&);
extern template answer_envelope read_envelope(std::span<const std::uint8_t>);
extern template std::string envelope_bytes(const clock_envelope&);
extern template clock_envelope read_envelope(std::span<const std::uint8_t>);
extern template std::string envelope_bytes(const hello_envelope&);
extern template hello_envelope read_envelope(std::span<const std::uint8_t>);
extern template std::string envelope_bytes(const claim_envelope&);
extern template claim_envelope read_envelope(std::span<const std::uint8_t>);

} // namespace zel::event_routing::nats

template <>
struct zel::serialization::record<zel::event_routing::nats::carried_payload> {
    using carried = event_routing::nats::carried_payload;
    static constexpr std::string_view name = "struct zel::event_routing::nats::carried_payload";
    static constexpr std::tuple fields{field("type", &carried::type),
                                       field("bytes", &carried::bytes)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::numbered_path> {
    using numbered = event_routing::nats::numbered_path;
    static constexpr std::string_view name = "struct zel::event_routing::nats::numbered_path";
    static constexpr std::tuple fields{field("path", &numbered::path),
                                       field("number", &numbered::number)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::event_envelope> {
    using envelope = event_routing::nats::event_envelope;
    static constexpr std::string_view name = "struct zel::event_routing::nats::event_envelope";
    static constexpr std::tuple fields{
        field("origin", &envelope::origin),         field("number", &envelope::number),
        field("paths", &envelope::paths),           field("hops", &envelope::hops),
        field("parameters", &envelope::parameters), field("payload", &envelope::payload)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::request_envelope> {
    using envelope = event_routing::nats::request_envelope;
    static constexpr std::string_view name = "struct zel::event_routing::nats::request_envelope";
    static constexpr std::tuple fields{field("origin", &envelope::origin),
                                       field("sent", &envelope::sent),
                                       field("time_out", &envelope::time_out),
                                       field("hops", &envelope::hops),
                                       field("path", &envelope::path),
                                       field("parameters", &envelope::parameters),
                                       field("payload", &envelope::payload),
                                       field("response", &envelope::response),
                                       field("error_response", &envelope::error_response)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::answer_envelope> {
    using envelope = event_routing::nats::answer_envelope;
    static constexpr std::string_view name = "struct zel::event_routing::nats::answer_envelope";
    static constexpr std::tuple fields{
        field("outcome", &envelope::outcome),   field("host", &envelope::host),
        field("type", &envelope::type),         field("text", &envelope::text),
        field("response", &envelope::response), field("error_response", &envelope::error_response)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::clock_envelope> {
    using envelope = event_routing::nats::clock_envelope;
    static constexpr std::string_view name = "struct zel::event_routing::nats::clock_envelope";
    static constexpr std::tuple fields{field("now", &envelope::now)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::claim_envelope> {
    using envelope = event_routing::nats::claim_envelope;
    static constexpr std::string_view name = "struct zel::event_routing::nats::claim_envelope";
    static constexpr std::tuple fields{field("origin", &envelope::origin),
                                       field("gives_way", &envelope::gives_way)};
};

template <>
struct zel::serialization::record<zel::event_routing::nats::hello_envelope> {
    using envelope = event_routing::nats::hello_envelope;
    static constexpr std::string_view name = "struct zel::event_routing::nats::hello_envelope";
    static constexpr std::tuple fields{field("origin", &envelope::origin),
                                       field("kind", &envelope::kind),
                                       field("unique_requests", &envelope::unique_requests),
                                       field("snowballs", &envelope::snowballs)};
};
