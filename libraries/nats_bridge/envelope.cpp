#include "libraries/nats_bridge/envelope.h"

#include "framework/exceptions/exceptions.h"

namespace zel::event_routing::nats {

namespace {

// Raised whenever a field changes: a host of another version is refused instead of misread.
constexpr std::uint8_t version = 1;

// Reads where the bytes lie.
class in_span_stream final : public serialization::in_blob_stream_base {
public:
    explicit in_span_stream(std::span<const std::uint8_t> bytes) noexcept
        : in_blob_stream_base(bytes.data(), bytes.size()) {}
};

// Where bytes are missing the streams throw std::runtime_error, which is no failure of ours.
template <class Read>
void read_or_refuse(Read&& read) {
    try {
        read();
    } catch (const exceptions::error&) {
        throw;
    } catch (const std::exception& failure) {
        throw exceptions::error(std::string("An envelope is cut short: ") + failure.what());
    }
}

} // namespace

template <class Envelope>
std::string envelope_bytes(const Envelope& envelope) {
    serialization::out_blob_stream out;
    serialization::Serialize(out, static_cast<std::uint8_t>(Envelope::letter));
    serialization::Serialize(out, version);
    serialization::Serialize(out, envelope);
    const auto bytes = out.take();
    return {bytes.begin(), bytes.end()};
}

template <class Envelope>
Envelope read_envelope(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 2 || bytes[0] != static_cast<std::uint8_t>(Envelope::letter))
        throw exceptions::error("These bytes are no envelope of this kind.");
    if (bytes[1] != version)
        throw exceptions::error("An envelope has the version " + std::to_string(bytes[1]) +
                                ", and this host reads version " + std::to_string(version) + ".");
    Envelope envelope;
    read_or_refuse([&] {
        in_span_stream in(bytes.subspan(2));
        serialization::Deserialize(in, envelope);
        if (in.remaining() != 0)
            throw exceptions::error("Something follows an envelope.");
    });
    return envelope;
}

template std::string envelope_bytes(const event_envelope&);
template event_envelope read_envelope(std::span<const std::uint8_t>);
template std::string envelope_bytes(const request_envelope&);
template request_envelope read_envelope(std::span<const std::uint8_t>);
template std::string envelope_bytes(const answer_envelope&);
template answer_envelope read_envelope(std::span<const std::uint8_t>);
template std::string envelope_bytes(const clock_envelope&);
template clock_envelope read_envelope(std::span<const std::uint8_t>);
template std::string envelope_bytes(const hello_envelope&);
template hello_envelope read_envelope(std::span<const std::uint8_t>);
template std::string envelope_bytes(const claim_envelope&);
template claim_envelope read_envelope(std::span<const std::uint8_t>);

} // namespace zel::event_routing::nats
