// One broadcast on its way: the handlers it found and how they are run.
#pragma once

#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include <unordered_map>

namespace zel::event_routing::impl {

/// One handler that a broadcast will run.
struct MultiPathHandlerInfo {
    const std::string* piece; ///< the path that found it first; the broadcast keeps it
    std::string joined;       ///< all its paths with ";" between, if there are several
    std::shared_ptr<event_routing_node::registered_handler> handler;
    std::int32_t level; ///< of the first path

    const std::string& path() const noexcept { return joined.empty() ? *piece : joined; }
};

/// The handlers of one broadcast in the order in which they run.
class broadcast_handlers {
public:
    /// `several_paths`: more than one call of FlattenHandlers is to come.
    broadcast_handlers(bool several_paths, std::pmr::memory_resource* memory)
        : handlers_(memory), several_paths_(several_paths) {}

    /// Appends the handlers collected for one path; those that are there already
    /// only get the path added. `path` must outlive this object.
    void FlattenHandlers(const std::string& path,
                         const event_routing_node::collected_handlers& collected);

    /// Runs every handler that is still registered, on the calling thread.
    void RouteEvent(const event_data& data, const routing_parameters& parameters) const;

private:
    bool add_path_to_known(const std::string& path,
                           const event_routing_node::registered_handler* handler);

    std::pmr::vector<MultiPathHandlerInfo> handlers_;
    // Where a handler stands; kept only for broadcasts to several paths.
    bool several_paths_;
    std::unordered_map<const event_routing_node::registered_handler*, std::size_t> index_;
};

} // namespace zel::event_routing::impl
