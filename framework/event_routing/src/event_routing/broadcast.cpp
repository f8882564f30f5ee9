// The road of one event, from top to bottom.
#include "framework/event_routing/src/event_routing/broadcast.h"

#include "framework/event_routing/src/event_routing/debugging.h"
#include "framework/event_routing/src/event_routing/handler_failures.h"

#include <platform/diagnostics.h>

#include <array>
#include <memory_resource>

namespace zel::event_routing::impl {

namespace {

constinit log::source_position broadcast_failed(__FILE__, 120);

// Enough for some thirty handlers; a broadcast that finds more takes more from
// the heap.
constexpr std::size_t usual_memory = 4096;

} // namespace

void EventRoutingImpl::BroadcastEvent(const std::string& paths, const event_data& data,
                                      const routing_parameters& parameters,
                                      const std::shared_ptr<tasklib::keep_registered>&) {
    const std::vector<std::string> pieces =
        text::split_string(paths, ";", text::empty_pieces::drop);
    try {
        std::array<std::byte, usual_memory> buffer;
        std::pmr::monotonic_buffer_resource memory(buffer.data(), buffer.size());
        broadcast_handlers handlers(pieces.size() > 1, &memory);
        event_routing_node::collected_handlers collected(&memory);
        for (const auto& piece : pieces) {
            collected.clear();
            collect(piece, collected);
            handlers.FlattenHandlers(piece, collected);
        }
        collected.clear();
        handlers.RouteEvent(data, parameters);
    } catch (const std::exception&) {
        routing_log.report(log::severity::failed_operation, broadcast_failed,
                           std::current_exception(),
                           [&] { return " Broadcasting of '" + paths + "' event failed."; });
    }
}

// The only part of a broadcast that holds the routing lock.
void EventRoutingImpl::collect(std::string_view path,
                               event_routing_node::collected_handlers& found) {
    threading::shared_lock_guard map_is_stable(routing_lock_);
    map_.CollectHandlers(path, found);
}

void broadcast_handlers::FlattenHandlers(const std::string& path,
                                         const event_routing_node::collected_handlers& collected) {
    for (const auto& [handler, level] : collected) {
        // Only a look: the hold that removal waits for belongs to running calls, and
        // a broadcast must not wait for one behind a waiting removal.
        if (handler->is_retired())
            continue;
        if (several_paths_ && add_path_to_known(path, handler.get()))
            continue;
        handlers_.push_back({&path, {}, handler, level});
    }
}

bool broadcast_handlers::add_path_to_known(const std::string& path,
                                           const event_routing_node::registered_handler* handler) {
    const auto [known, is_new] = index_.emplace(handler, handlers_.size());
    if (is_new)
        return false;
    MultiPathHandlerInfo& entry = handlers_[known->second];
    if (entry.joined.empty())
        entry.joined = *entry.piece;
    entry.joined += ";" + path;
    return true;
}

void broadcast_handlers::RouteEvent(const event_data& data,
                                    const routing_parameters& parameters) const {
    for (const MultiPathHandlerInfo& entry : handlers_) {
        const auto function = entry.handler->use();
        if (!function || !function->synchronous_part)
            continue;
        const auto failure =
            platform::guarded([&] { function->synchronous_part(entry.path(), data, parameters); });
        if (failure)
            synchronous_part_failed(failure, entry.path(), entry.level, entry.handler->description);
    }
}

} // namespace zel::event_routing::impl
