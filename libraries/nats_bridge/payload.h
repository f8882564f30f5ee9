// Payloads and parameters on their way out of the process and in.
#pragma once

#include "libraries/nats_bridge/envelope.h"

#include <event_routing/routing_parameters.h>
#include <framework/serialization/data_holder.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace zel::event_routing::nats {

/// Nothing for an empty holder. Throws exceptions::error for content that has no bytes.
std::optional<carried_payload> carry(const std::shared_ptr<const serialization::IDataHolder>& data);

/// Throws exceptions::error for a type that nobody has registered in this process.
std::shared_ptr<serialization::IDataHolder> uncarry(const std::optional<carried_payload>& payload);

/// Takes out what a stranger has no say in, how this process routes, and says where it came from.
void mark_as_imported(routing_parameters& about, const std::string& origin, std::uint8_t hops);

} // namespace zel::event_routing::nats
