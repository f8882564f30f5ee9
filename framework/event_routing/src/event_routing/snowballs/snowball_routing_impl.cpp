#include "framework/event_routing/src/event_routing/snowballs/snowball_routing_impl.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/event_routing/src/event_routing/routing/registration.h"

namespace zel::event_routing::impl {

namespace {

constinit log::source_position
    registering("event_routing/framework/event_routing/src/event_routing/snowball_routing_impl.cpp",
                46);

} // namespace

SnowballRoutingImpl::SnowballRoutingImpl()
    : monitors_(std::make_shared<observation::monitors>(threads_)) {}

SnowballRoutingImpl::~SnowballRoutingImpl() {
    const platform::no_cancellation to_the_end;
    monitors_.reset(); // their callables are foreign code
}

std::shared_ptr<tasklib::keep_registered> SnowballRoutingImpl::RegisterSnowballHandler(
    const std::string& path, const snowball_handler& handler, const std::string& description) {
    routing_log.announce(log::severity::registration, registering,
                         [&] { return "Registering snowball handler for " + path + "."; });
    const prepared_handler<snowball_routing_node> prepared(
        path, handler, SnowballRoutingNodeAdditionalData(), description);
    threading::exclusive_lock_guard map_is_mine(routing_lock_);
    return register_handler(*this, handlers_, prepared);
}

void SnowballRoutingImpl::Unregister(snowball_routing_node::registration position) {
    take_out(position)->finish(*threads_);
}

std::shared_ptr<snowball_routing_node::registered_handler>
SnowballRoutingImpl::take_out(snowball_routing_node::registration position) {
    auto removed = unlink_handler<snowball_routing_node>(routing_lock_, position);
    threads_->close(*removed);
    return removed;
}

std::vector<std::pair<std::string, std::string>> SnowballRoutingImpl::GetSnowballHandlers() {
    threading::shared_lock_guard map_is_stable(routing_lock_);
    return handlers_.CollectAllHandlers();
}

std::shared_ptr<tasklib::keep_registered>
SnowballRoutingImpl::RegisterMonitorHandler(snowball_monitor monitor) {
    return monitors_->RegisterMonitorHandler(std::move(monitor));
}

} // namespace zel::event_routing::impl
