// The least that makes a routing service: a map, its lock and cookies.
#pragma once

#include "framework/event_routing/src/event_routing/registration.h"

namespace zel::test {

struct nothing {};

template <class Function>
class bare_service : public std::enable_shared_from_this<bare_service<Function>> {
public:
    using node = event_routing::impl::RoutingMapNode<Function, nothing>;
    using record = std::shared_ptr<typename node::registered_handler>;

    std::shared_ptr<tasklib::keep_registered> add(const std::string& path, Function function) {
        const event_routing::impl::prepared_handler<node> handler(path, std::move(function),
                                                                  nothing(), "x");
        threading::exclusive_lock_guard map_is_mine(routing_lock);
        return event_routing::impl::register_handler(*this, map, handler);
    }
    void Unregister(typename node::registration position) {
        event_routing::impl::unlink_handler<node>(routing_lock, position)->retire();
    }
    /// The first handler of the path, or null.
    record find(const std::string& path) {
        threading::shared_lock_guard map_is_stable(routing_lock);
        typename node::collected_handlers found;
        map.CollectHandlers(path, found);
        return found.empty() ? nullptr : found.front().handler;
    }

    threading::recursive_shared_mutex routing_lock;
    node map;
};

} // namespace zel::test

template <class Function>
struct zel::declared_type_name<zel::test::bare_service<Function>> {
    static std::string text() { return "class test::service"; }
};
template <class Function>
struct zel::declared_type_name<
    zel::event_routing::impl::RoutingMapNode<Function, zel::test::nothing>> {
    static std::string text() { return "class test::node"; }
};
