// Asks other hosts what no regular handler of this process has answered.
//
// The bridge is a fallback handler, so local handlers win. It passes by what came over the network
// itself, and a local pass, in which handlers answer only for their own session.
#pragma once

#include "libraries/nats_bridge/host_directory.h"
#include "libraries/nats_bridge/remote_calls.h"

#include <event_routing/client.h>

#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing::nats {

class request_export {
public:
    /// All of these outlive the object.
    request_export(const bridge_options& options, IModule& module, remote_calls& calls,
                   host_directory& hosts);

    /// Registers the handlers.
    void begin();
    /// Takes no more requests. Those that wait for an answer do so for at most that long, and then
    /// fail.
    void end(platform::milliseconds limit);

private:
    bool ask(const asked_requests& asked, const std::string& path, const request_data& data,
             request_answer& response, request_answer& error_response,
             const routing_parameters& about);
    std::optional<answer_envelope> ask_each(const remote_question& question,
                                            const std::vector<std::string>& hosts,
                                            const routing_parameters& about);

    const bridge_options& options_;
    IModule& module_;
    remote_calls& calls_;
    host_directory& hosts_;
    std::vector<std::shared_ptr<tasklib::keep_registered>> handlers_;
};

} // namespace zel::event_routing::nats
