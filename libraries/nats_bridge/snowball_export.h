// Sends snowballs on to other hosts: one after another in the order of their identifiers, each gets
// what those before it have left in the outputs.
#pragma once

#include "libraries/nats_bridge/host_directory.h"
#include "libraries/nats_bridge/remote_calls.h"

#include <event_routing/client.h>

#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing::nats {

class snowball_export {
public:
    /// All of these outlive the object.
    snowball_export(const bridge_options& options, IModule& module, remote_calls& calls,
                    host_directory& hosts, counters& counts);

    /// Registers the handlers.
    void begin();
    /// Takes no more. A pass that waits for a host does so for at most that long.
    void end(platform::milliseconds limit);

private:
    void send(const sent_snowballs& sent, const std::string& path, const snowball_data& data,
              snowball_result& response, snowball_result& error_response,
              const routing_parameters& about);
    void pass_by(const std::string& origin, routing_parameters& about, const std::string& reason);

    const bridge_options& options_;
    IModule& module_;
    remote_calls& calls_;
    host_directory& hosts_;
    counters& counts_;
    std::vector<std::shared_ptr<tasklib::keep_registered>> handlers_;
};

} // namespace zel::event_routing::nats
