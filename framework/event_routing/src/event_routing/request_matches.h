// The handlers that a request to one path may reach, in the order in which they are
// tried.
//
// Shared and never changed once it is made. Handlers are held as records, so that no
// dropped handler's callable is kept alive.
#pragma once

#include "framework/event_routing/src/event_routing/request_node.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::impl {

struct request_match {
    std::shared_ptr<request_routing_node::registered_handler> handler;
    std::int32_t level;
    std::int32_t priority; ///< 0 but for regular handlers
};

struct request_matches {
    std::string path; ///< as handlers are given it
    std::vector<request_match> redirections;
    std::vector<request_match> regular; ///< the priority groups, one behind the other
    std::vector<request_match> fallbacks;
};

/// The registrations must not change meanwhile.
std::shared_ptr<const request_matches> match_request(std::string_view path,
                                                     const request_routing_node& redirections,
                                                     const request_routing_node& regular,
                                                     const request_routing_node& fallbacks);

} // namespace zel::event_routing::impl
