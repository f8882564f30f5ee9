// One question to other hosts, and what its answer means to the sender.
#pragma once

#include "libraries/nats_bridge/counters.h"
#include "libraries/nats_bridge/exchange.h"

#include <event_routing/client.h>

#include <memory>
#include <optional>
#include <string>

namespace zel::event_routing::nats {

/// What is asked; `what` is how failures begin, such as "Request 'a.b'".
struct remote_question {
    std::string what;
    request_envelope envelope;
    platform::milliseconds time_out;
    steady_clock::time_point deadline;
};

class remote_calls {
public:
    /// All of these outlive the object.
    remote_calls(const bridge_options& options, const std::string& origin, IModule& module,
                 exchange& others, counters& counts);

    /// Whether a message may leave this process: it did not come over the network, is not for this
    /// session alone, and has not crossed too many bridges.
    static bool may_leave(const routing_parameters& about);

    /// From now on its time runs. Throws request_failed for data that cannot be carried.
    remote_question question(const std::string& what, const std::string& path,
                             const std::shared_ptr<const serialization::IDataHolder>& data,
                             const routing_parameters& about, platform::milliseconds time_out);

    /// Nothing when nobody serves it. The channel is the origin of the host that is asked, or
    /// empty for whoever serves it. Throws request_failed, also when the other host did.
    std::optional<answer_envelope> ask(const remote_question& question, const std::string& kind,
                                       const std::string& channel);

    /// A payload of an answer. Throws request_failed where it cannot be read here.
    static std::shared_ptr<serialization::IDataHolder>
    read(const remote_question& question, const std::optional<carried_payload>& payload);

    /// Has what waits for an answer fail.
    void end() { others_.end(); }

private:
    const bridge_options& options_;
    const std::string origin_;
    IModule& module_;
    exchange& others_;
    counters& counts_;
};

} // namespace zel::event_routing::nats
