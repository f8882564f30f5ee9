// Answers the requests of other hosts and adds to their snowballs: each is sent in this process as
// a task.
#pragma once

#include "libraries/nats_bridge/counters.h"
#include "libraries/nats_bridge/peer_clocks.h"
#include "libraries/nats_bridge/task_runner.h"

#include <event_routing/client.h>

#include <atomic>
#include <memory>
#include <string>

namespace zel::event_routing::nats {

class request_import {
public:
    /// All of these outlive the object, and the connection is closed and the tasks have ended
    /// before it goes.
    request_import(const bridge_options& options, const std::string& origin, IModule& module,
                   connection& network, task_runner& tasks, peer_clocks& clocks, counters& counts);

    /// Takes the requests of the pattern from now on that are meant for one of those that serve it.
    /// Any thread.
    void serve(const std::string& pattern);
    /// The same for those that are meant for this host.
    void serve_alone(const std::string& pattern);
    /// The same for snowballs.
    void serve_snowballs(const std::string& pattern);

private:
    using executing = void (request_import::*)(const request_envelope& request,
                                               routing_parameters& about, const request_data& data,
                                               answer_envelope& answer);

    void take(const received_message& message, executing execute);
    void answer(const request_envelope& request, executing execute, const std::string& answer_to);
    answer_envelope answer_of(const request_envelope& request, executing execute);
    void send_request(const request_envelope& request, routing_parameters& about,
                      const request_data& data, answer_envelope& answer);
    void send_request_alone(const request_envelope& request, routing_parameters& about,
                            const request_data& data, answer_envelope& answer);
    void send_snowball(const request_envelope& request, routing_parameters& about,
                       const request_data& data, answer_envelope& answer);
    answer_envelope refusal(const std::string& reason) const;
    void send(const answer_envelope& answer, const std::string& answer_to);

    const bridge_options& options_;
    const std::string origin_;
    const std::string answers_; // where hosts of this realm wait for answers
    IModule& module_;
    connection& network_;
    task_runner& tasks_;
    peer_clocks& clocks_;
    counters& counts_;
    std::atomic<std::size_t> waiting_{0}; // relaxed: only a limit
};

} // namespace zel::event_routing::nats
