// All that a bridge has for requests and snowballs: a connection of its own that sends at once,
// what asks and what answers.
#pragma once

#include "libraries/nats_bridge/owner_claims.h"
#include "libraries/nats_bridge/request_export.h"
#include "libraries/nats_bridge/request_import.h"
#include "libraries/nats_bridge/snowball_export.h"

namespace zel::event_routing::nats {

class requests {
public:
    /// All of these outlive the object. `changed` is set whenever something has come that
    /// is_ready depends on.
    requests(const bridge_options& options, const std::string& origin, IModule& module,
             platform::event& changed, task_runner& tasks, counters& counts);
    requests(const requests&) = delete;
    requests& operator=(const requests&) = delete;

    /// Registers and subscribes. What it throws leaves the object to be ended.
    void begin();

    /// Whether the server has taken note of all that is served, and the expected hosts were heard
    /// of. Throws exceptions::error when
    /// another host owns a pattern.
    bool is_ready(platform::milliseconds limit);

    /// Takes nothing more in either direction; what is being asked or executed has so long.
    void end(platform::milliseconds limit);

    /// After that, when no task runs any more: until then tasks answer.
    void close(platform::milliseconds limit) { network_.close(limit); }

private:
    const bridge_options& options_;
    const std::string origin_;
    platform::event& changed_;
    task_runner& tasks_;
    exchange others_;
    peer_clocks clocks_;
    request_import import_;
    host_directory hosts_;
    remote_calls calls_;
    request_export request_export_;
    snowball_export snowball_export_;
    owner_claims claims_;
    connection network_; // the last: it calls others from the moment when it is made
};

} // namespace zel::event_routing::nats
