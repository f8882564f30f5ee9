#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/event_routing/src/event_routing/routing/handler_failures.h"
#include "framework/event_routing/src/event_routing/routing/registration.h"
#include "generic/tasklib/src/tasks/task_queue.h"

namespace zel::event_routing::impl {

namespace {

constinit log::source_position
    registering("event_routing/framework/event_routing/src/event_routing/event_routing_impl.cpp",
                57);

} // namespace

EventRoutingImpl::EventRoutingImpl()
    : tasks_(std::make_shared<tasklib::task_container>("")),
      monitors_(std::make_shared<event_monitors>(threads_)) {}

EventRoutingImpl::~EventRoutingImpl() {
    const platform::no_cancellation to_the_end;
    if (const auto failure =
            platform::guarded([&] { WriteStatistics(*statistics_.take_period()); }))
        report_exception(failure);
    // What these hold is foreign code, too.
    monitors_.reset();
    cumulative_events_.drop_all();
    tasks_.reset();
}

std::shared_ptr<tasklib::keep_registered> EventRoutingImpl::RegisterEventHandler(
    const std::shared_ptr<tasklib::task_queue_ifc>& queue, const std::string& path,
    const synchronous_event_part& synchronous_part,
    const asynchronous_event_part& asynchronous_part, const std::string& description) {
    routing_log.announce(log::severity::registration, registering,
                         [&] { return "Registering event handler for " + path + "."; });
    const prepared_handler<event_routing_node> handler(
        path, EventRoutingNodeFunction{synchronous_part, asynchronous_part},
        EventRoutingNodeAdditionalData{queue}, description);
    threading::exclusive_lock_guard map_is_mine(routing_lock_);
    return register_handler(*this, map_, handler);
}

void EventRoutingImpl::Unregister(event_routing_node::registration position) {
    take_out(position)->finish(*threads_);
}

std::shared_ptr<event_routing_node::registered_handler>
EventRoutingImpl::take_out(event_routing_node::registration position) {
    auto removed = unlink_handler<event_routing_node>(routing_lock_, position);
    threads_->close(*removed);
    return removed;
}

std::vector<std::pair<std::string, std::string>> EventRoutingImpl::GetEventHandlers() {
    threading::shared_lock_guard map_is_stable(routing_lock_);
    return map_.CollectAllHandlers();
}

std::shared_ptr<tasklib::task_queue_ifc> EventRoutingImpl::CreateTaskQueue() {
    return std::make_shared<tasklib::task_queue>(1); // one at a time, so in order
}

bool EventRoutingImpl::EndAndWaitForHandlers() {
    has_ended_.store(true, std::memory_order_relaxed);
    return tasks_->end_and_wait({});
}

std::shared_ptr<tasklib::keep_registered>
EventRoutingImpl::RegisterMonitorHandler(event_monitor monitor) {
    return monitors_->RegisterMonitorHandler(std::move(monitor));
}

} // namespace zel::event_routing::impl
