// The event routing service.
#pragma once

#include "framework/event_routing/src/event_routing/events/broadcast_statistics.h"
#include "framework/event_routing/src/event_routing/events/cumulative_events.h"
#include "framework/event_routing/src/event_routing/events/event_monitors.h"
#include "framework/event_routing/src/event_routing/events/event_node.h"
#include "framework/event_routing/src/event_routing/events/match_list.h"
#include "framework/event_routing/src/event_routing/monitors/numbered_parameters.h"
#include "framework/event_routing/src/event_routing/routing/current_matches.h"
#include "generic/tasklib/src/tasks/task_container.h"

#include <event_routing/event_routing.h>
#include <event_routing/pending_events.h>

namespace zel::event_routing::impl {

class EventRouting : public IEventRouting {};

class EventRoutingImpl final : public EventRouting,
                               public IPendingEvents,
                               public std::enable_shared_from_this<EventRoutingImpl> {
public:
    EventRoutingImpl();
    /// Writes the statistics report, then ends and waits for asynchronous parts.
    ~EventRoutingImpl() override;

    std::shared_ptr<tasklib::task_queue_ifc> CreateTaskQueue() override;
    void BroadcastEvent(const std::string& paths, const event_data& data,
                        const routing_parameters& parameters,
                        const std::shared_ptr<tasklib::keep_registered>& keep) override;
    void BroadcastCumulativeEvent(threading::universal_timeout delay, const std::string& path,
                                  const event_data& data, const routing_parameters& parameters,
                                  const std::shared_ptr<tasklib::keep_registered>& keep) override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterEventHandler(const std::shared_ptr<tasklib::task_queue_ifc>& queue,
                         const std::string& path, const synchronous_event_part& synchronous_part,
                         const asynchronous_event_part& asynchronous_part,
                         const std::string& description) override;
    std::vector<std::pair<std::string, std::string>> GetEventHandlers() override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(event_monitor monitor) override;
    bool EndAndWaitForHandlers() override;
    bool FlushCumulativeEvent(const std::string& path) override;
    bool CancelCumulativeEvent(const std::string& path) override;

    /// Run by the cookie of a handler.
    void Unregister(event_routing_node::registration position);
    /// Its first half: the handler, which is out of the map and gets no more calls.
    std::shared_ptr<event_routing_node::registered_handler>
    take_out(event_routing_node::registration position);
    /// Where calls of the handlers are announced.
    thread_records& threads() const noexcept { return *threads_; }

private:
    class broadcast;
    class delivery;

    void deliver(const std::string& path, cumulative_event_data& batch);
    cumulative_events::batch take_from_delivery(const std::string& path);

    const std::shared_ptr<thread_records> threads_ = thread_records::shared();
    broadcast_statistics statistics_{*threads_};
    match_records<match_list> records_{*threads_};
    routing_lock routing_lock_;
    event_routing_node map_ ZEL_GUARDED_BY(routing_lock_);
    // Holds asynchronous parts and deliveries; these hold the service only while they run.
    std::shared_ptr<tasklib::task_container> tasks_;
    // Relaxed: saves making a task that the container would cancel, even when there is no
    // task library any more to make it.
    std::atomic<bool> has_ended_{false};
    cumulative_events cumulative_events_;
    spare_parameters spare_parameters_{*threads_};
    std::shared_ptr<event_monitors> monitors_;
};

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::impl::EventRoutingImpl> {
    static std::string text() { return "class zel::event_routing::impl::EventRoutingImpl"; }
};
