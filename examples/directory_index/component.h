// What the host and a component's library have in common, besides what is routed.
//
// A component lives from messages alone. It lies in a shared library of its own, which the
// host loads; it sees of the others only what they send (paths.h, payloads.h), and any of
// them may be missing. It registers its handlers when it is made and holds their cookies as
// its last member, so that no handler runs on a half-destroyed component.
//
// The host sends on one thread: what a component keeps needs a lock only if an asynchronous
// part uses it, too.
#pragma once

#include <event_routing/client.h>
#include <event_routing/component.h>

#include <memory>
#include <string>
#include <vector>

namespace directory_index {

using zel::event_routing::event_data;
using zel::event_routing::IEventRouting;
using zel::event_routing::routing_parameters;
using cookie = std::shared_ptr<zel::tasklib::keep_registered>;
using cookies = std::vector<cookie>;

/// What there is to register with.
struct services {
    std::shared_ptr<IEventRouting> events;
    std::shared_ptr<zel::event_routing::IRequestRouting> requests;
    std::shared_ptr<zel::event_routing::ISnowballRouting> snowballs;

    static services of_this_process() {
        using namespace zel::event_routing;
        const auto module = get_module();
        return {get_event_routing(*module), get_request_routing(*module),
                get_snowball_routing(*module)};
    }
};

} // namespace directory_index
