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

/// The bytes of an envelope.
template <class Envelope>
std::string envelope_bytes(const Envelope& envelope);

/// The envelope of bytes that somebody has sent.
template <class Envelope>
Envelope read_envelope(std::span<const std::uint8_t> bytes);

extern template std::string envelope_bytes(const event_envelope&);
extern template event_envelope read_envelope(std::span<const std::uint8_t>);

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
