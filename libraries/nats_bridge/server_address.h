// The address of a server, as people may see it, and what it says about who can listen.
#pragma once

#include <event_routing/nats_bridge.h>

#include <string>

namespace zel::event_routing::nats {

/// Without the user's name and password, which an address may hold.
std::string without_password(const std::string& server);

/// Whether all connections are: one address of a server that begins with tls:// is enough, since
/// the connection may be with any of them.
bool is_encrypted(const bridge_options& options);

/// Whether what is sent there crosses a network as clear text.
bool can_be_overheard(const bridge_options& options, const std::string& server);

} // namespace zel::event_routing::nats
