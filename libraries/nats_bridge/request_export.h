// Asks other hosts what no regular handler of this process has answered.
//
// The bridge is a fallback handler, so local handlers win. It passes by what came over the network
// itself, and a local pass, in which handlers answer only for their own session.
#pragma once

#include "libraries/nats_bridge/counters.h"
#include "libraries/nats_bridge/exchange.h"

#include <event_routing/client.h>

#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing::nats {

class request_export {
public:
    /// All of these outlive the object.
    request_export(const bridge_options& options, const std::string& origin, IModule& module,
                   exchange& others, counters& counts);

    /// Registers the handlers.
    void begin();
    /// Takes no more requests. Those that wait for an answer do so for at most that long, and are
    /// then failed by the end of the exchange.
    void end(platform::milliseconds limit);

private:
    bool ask(const asked_requests& asked, const std::string& path, const request_data& data,
             request_answer& response, request_answer& error_response,
             const routing_parameters& about);
    std::string question_bytes(const std::string& path, const request_data& data,
                               const routing_parameters& about, platform::milliseconds time_out,
                               steady_clock::time_point now);

    const bridge_options& options_;
    const std::string origin_;
    IModule& module_;
    exchange& others_;
    counters& counts_;
    std::vector<std::shared_ptr<tasklib::keep_registered>> handlers_;
};

} // namespace zel::event_routing::nats
