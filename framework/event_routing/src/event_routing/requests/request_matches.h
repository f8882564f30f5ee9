// The handlers that a request to one path may reach, in the order in which they are
// tried.
//
// Shared and never changed once it is made. Handlers are held as records, so that no
// dropped handler's callable is kept alive.
#pragma once

#include "framework/event_routing/src/event_routing/requests/request_node.h"
#include "framework/event_routing/src/event_routing/routing/match_records.h"

#include <memory>
#include <vector>

namespace zel::event_routing::impl {

struct request_match {
    std::shared_ptr<request_routing_node::registered_handler> handler;
    std::int32_t level;
    std::int32_t priority; ///< 0 but for regular handlers
};

/// Handlers are given its text as the path.
struct request_matches final : matches_of_text, std::enable_shared_from_this<request_matches> {
    using matches_of_text::matches_of_text;
    std::size_t size() const noexcept override {
        return redirections.size() + regular.size() + fallbacks.size();
    }
    bool contains(const retirable_base& handler) const noexcept override;

    std::vector<request_match> redirections;
    std::vector<request_match> regular; ///< the priority groups, one behind the other
    std::vector<request_match> fallbacks;
};

/// Where they are looked for. Handlers that are left go in the opposite order.
struct request_maps {
    request_routing_node handlers;
    request_routing_node fallbacks;
    request_routing_node redirections;
};

/// The maps must not change meanwhile.
std::shared_ptr<const request_matches>
match_request(std::string_view path, std::uint64_t generation, const request_maps& maps);

} // namespace zel::event_routing::impl
