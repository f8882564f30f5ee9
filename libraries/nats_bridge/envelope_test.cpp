#include "libraries/nats_bridge/envelope.h"

#include "framework/exceptions/exceptions.h"

#include <gtest/gtest.h>

namespace zel::event_routing::nats {
namespace {

std::span<const std::uint8_t> as_bytes(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(BridgeEnvelope, ComesBackAsItWasAndOnlyWhole) {
    event_envelope sent{"host 1", 7, {{"a.b", 3}, {"", 0}}, 2, {1, 2, 3}, carried_payload{}};
    sent.payload = {"struct document", {9, 8}};
    const std::string bytes = envelope_bytes(sent);
    EXPECT_EQ(read_envelope<event_envelope>(as_bytes(bytes)), sent);
    EXPECT_EQ(bytes.substr(0, 2), std::string("E\1", 2));
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_THROW(read_envelope<event_envelope>(as_bytes(bytes.substr(0, size))),
                     exceptions::error)
            << size;
    EXPECT_THROW(read_envelope<event_envelope>(as_bytes(bytes + '\0')), exceptions::error);
    EXPECT_THROW(read_envelope<event_envelope>(as_bytes("E\2" + bytes.substr(2))),
                 exceptions::error);
    EXPECT_THROW(read_envelope<event_envelope>(as_bytes("R" + bytes.substr(1))), exceptions::error);
    const request_envelope asked{"host 1",
                                 -5,
                                 6,
                                 1,
                                 "a..b",
                                 {1},
                                 carried_payload{"string", {2}},
                                 std::nullopt,
                                 carried_payload{"e", {}}};
    EXPECT_EQ(read_envelope<request_envelope>(as_bytes(envelope_bytes(asked))), asked);
    const answer_envelope answer{2, "host", "type", "text", carried_payload{"t", {}}, std::nullopt};
    EXPECT_EQ(read_envelope<answer_envelope>(as_bytes(envelope_bytes(answer))), answer);
}

} // namespace
} // namespace zel::event_routing::nats
