// One broadcast on its way. Lives on the stack of BroadcastEvent, whose steps are
// the functions of this class.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/monitors/numbered_parameters.h"
#include "generic/tasklib/src/tasks/task.h"

#include <optional>

namespace zel::event_routing::impl {

class EventRoutingImpl::broadcast {
public:
    broadcast(EventRoutingImpl& service, const std::string& paths, const event_data& data,
              const routing_parameters& parameters) noexcept
        : service_(service), paths_(paths), data_(data), parameters_(&parameters) {}
    /// Tells the monitors and counts, however the broadcast ends. A monitor that ends
    /// its thread is unwound from here.
    ~broadcast() noexcept(false);
    broadcast(const broadcast&) = delete;
    broadcast& operator=(const broadcast&) = delete;

    void enter();
    void take_monitors();
    void choose_parameters();
    void recall_handlers();
    void collect_handlers();
    void RouteEvent();
    void wait_for_tasks() const;

private:
    // Counts at the very end.
    struct counting {
        ~counting();
        const broadcast& event;
    };

    template <class Use>
    void split_paths(const Use& use) const;
    void tell_monitors() const;
    void run_handler(const MultiPathHandlerInfo& handler);
    bool run_synchronous_part(const MultiPathHandlerInfo& handler,
                              const synchronous_event_part& part);
    void start_asynchronous_part(const MultiPathHandlerInfo& handler,
                                 const std::shared_ptr<tasklib::task_queue_ifc>& queue);

    EventRoutingImpl& service_;
    const std::string& paths_;
    const event_data& data_;
    const routing_parameters* parameters_; // the caller's, unless a number was added
    message_scope message_;
    const counting at_the_end_{*this};

    event_monitors::snapshot monitors_;
    std::optional<measurement> begin_; // only for monitors, like the next two
    numbered_parameters numbered_{service_.spare_parameters_};
    bool tells_monitors_ = false;
    std::uint64_t generation_ = 0; // of the registrations, from then on
    current_matches<match_list> matches_{service_.records_, message_};
    // How many milliseconds to wait for the tasks; nothing: not at all.
    std::optional<std::uint32_t> patience_;
    std::vector<tasklib::task<void>> tasks_; // kept only to be waited for
};

} // namespace zel::event_routing::impl
