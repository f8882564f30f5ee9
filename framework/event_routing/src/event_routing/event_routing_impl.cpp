#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "framework/event_routing/src/event_routing/debugging.h"
#include "framework/event_routing/src/event_routing/not_yet_available.h"
#include "framework/event_routing/src/event_routing/registration.h"

namespace zel::event_routing::impl {

namespace {

constinit log::source_position registering(__FILE__, 57);

} // namespace

std::shared_ptr<tasklib::keep_registered> EventRoutingImpl::RegisterEventHandler(
    const std::shared_ptr<tasklib::task_queue_ifc>& queue, const std::string& path,
    const synchronous_event_part& synchronous_part,
    const asynchronous_event_part& asynchronous_part, const std::string& description) {
    if (asynchronous_part)
        not_yet_available("zel::event_routing::IEventRouting::RegisterEventHandler with an "
                          "asynchronous part");
    routing_log.write(log::severity::registration, registering,
                      [&] { return "Registering event handler for " + path + "."; });
    const prepared_handler<event_routing_node> handler(
        path, EventRoutingNodeFunction{synchronous_part, asynchronous_part},
        EventRoutingNodeAdditionalData{queue}, description);
    threading::exclusive_lock_guard map_is_mine(routing_lock_);
    return register_handler(*this, map_, handler);
}

void EventRoutingImpl::Unregister(event_routing_node::registration position) {
    unregister_handler<event_routing_node>(routing_lock_, position);
}

std::vector<std::pair<std::string, std::string>> EventRoutingImpl::GetEventHandlers() {
    threading::shared_lock_guard map_is_stable(routing_lock_);
    return map_.CollectAllHandlers();
}

std::shared_ptr<tasklib::task_queue_ifc> EventRoutingImpl::CreateTaskQueue() {
    not_yet_available("zel::event_routing::IEventRouting::CreateTaskQueue");
}

void EventRoutingImpl::BroadcastCumulativeEvent(threading::universal_timeout, const std::string&,
                                                const event_data&, const routing_parameters&,
                                                const std::shared_ptr<tasklib::keep_registered>&) {
    not_yet_available("zel::event_routing::IEventRouting::BroadcastCumulativeEvent");
}

std::shared_ptr<tasklib::keep_registered> EventRoutingImpl::RegisterMonitorHandler(event_monitor) {
    not_yet_available("zel::event_routing::IEventRouting::RegisterMonitorHandler");
}

bool EventRoutingImpl::EndAndWaitForHandlers() {
    not_yet_available("zel::event_routing::IEventRouting::EndAndWaitForHandlers");
}

} // namespace zel::event_routing::impl
