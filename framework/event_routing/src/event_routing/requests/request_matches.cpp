#include "framework/event_routing/src/event_routing/requests/request_matches.h"

#include <algorithm>

namespace zel::event_routing::impl {

namespace {

std::vector<request_match> collect(std::string_view path, const request_routing_node& root) {
    request_routing_node::collected_handlers collected;
    root.CollectHandlers(path, collected);
    std::vector<request_match> matches;
    matches.reserve(collected.size());
    for (auto& [handler, level] : collected) {
        // There as long as the handler is in the map.
        const auto priority = handler->callable().additional_data.priority;
        matches.push_back({std::move(handler), level, priority});
    }
    return matches;
}

} // namespace

bool request_matches::contains(const retirable_base& handler) const noexcept {
    const auto is_it = [&](const request_match& m) { return m.handler.get() == &handler; };
    return std::ranges::any_of(regular, is_it) || std::ranges::any_of(fallbacks, is_it) ||
           std::ranges::any_of(redirections, is_it);
}

std::shared_ptr<const request_matches>
match_request(std::string_view path, std::uint64_t generation, const request_maps& maps) {
    auto matches = std::make_shared<request_matches>(path, generation);
    matches->redirections = collect(path, maps.redirections);
    matches->regular = collect(path, maps.handlers);
    matches->fallbacks = collect(path, maps.fallbacks);
    // Within a priority they stay in the order of collection.
    std::stable_sort(matches->regular.begin(), matches->regular.end(),
                     [](const auto& a, const auto& b) { return a.priority > b.priority; });
    return matches;
}

} // namespace zel::event_routing::impl
