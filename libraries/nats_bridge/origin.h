// The identifier of one run of a host: its name, "#", and what no other run has.
#pragma once

#include <string>

namespace zel::event_routing::nats {

/// A fresh one.
std::string new_origin(const std::string& host);

/// The name in it.
std::string host_of(const std::string& origin);

} // namespace zel::event_routing::nats
