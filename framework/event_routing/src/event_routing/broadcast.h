// One broadcast on its way: the handlers it found and how they are run.
#pragma once

#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include <deque>
#include <unordered_map>

namespace zel::event_routing::impl {

/// One handler that a broadcast will run.
struct MultiPathHandlerInfo {
    const std::string* path; ///< through which it was found; several joined by ";"
    std::shared_ptr<event_routing_node::handler_record> handler;
    std::int32_t level; ///< of the first path that found it
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
                           const event_routing_node::handler_record* handler);

    std::pmr::vector<MultiPathHandlerInfo> handlers_;
    // For broadcasts to several paths only: where a handler stands, and the
    // joined paths (a deque, because entries point into it).
    bool several_paths_;
    std::unordered_map<const event_routing_node::handler_record*, std::size_t> index_;
    std::unordered_map<std::size_t, std::string*> joined_;
    std::deque<std::string> joined_paths_;
};

} // namespace zel::event_routing::impl
