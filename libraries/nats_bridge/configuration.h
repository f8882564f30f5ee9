// A configuration in JSON, as the options of a bridge.
//
// One table in the source file says which member fills which option. It is what is read, and
// what a test compares docs/bridge.schema.json with.
#pragma once

#include <event_routing/nats_bridge.h>

#include <json/value.h>

namespace zel::event_routing::nats {

/// Options that the document does not name have their defaults. Throws
/// serialization::conversion_error with the place of a member that is unknown or missing, or
/// whose value is of another kind. Whether the values fit together is left to `check`.
bridge_options options_of(const Json::Value& document);

/// What `options_of` takes, as a JSON schema without texts for people and without defaults.
Json::Value configuration_schema();

} // namespace zel::event_routing::nats
