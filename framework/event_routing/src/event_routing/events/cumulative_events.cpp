#include "framework/event_routing/src/event_routing/events/cumulative_events.h"

#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "generic/tasklib/src/tasks/deadline.h"
#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"

#include <utility>

namespace zel::event_routing::impl {

bool cumulative_events::add(const std::string& path, event_data data,
                            routing_parameters parameters) {
    platform::scoped_lock inside(guard_); // what is replaced goes after it
    auto& batch = pending_[path];
    const bool is_first = !batch;
    if (is_first)
        batch = std::make_shared<cumulative_event_data>();
    batch->data.swap(data);
    batch->parameters.swap(parameters);
    ++batch->count;
    return is_first;
}

std::shared_ptr<cumulative_event_data>
cumulative_events::TakeCumulativeEvent(const std::string& path) {
    platform::scoped_lock inside(guard_);
    const auto entry = pending_.find(path);
    return entry == pending_.end() ? nullptr : std::exchange(entry->second, nullptr);
}

void cumulative_events::drop_all() {
    decltype(pending_) dropped; // after the guard
    platform::scoped_lock inside(guard_);
    dropped.swap(pending_);
}

// The body of a delivery task. One that will never run takes its batch along, so that
// the next broadcast begins another instead of adding to it for ever.
class EventRoutingImpl::delivery {
public:
    explicit delivery(std::string path) noexcept : path_(std::move(path)) {}
    delivery(delivery&&) noexcept = default;
    ~delivery() { take(); }

    /// From now on a batch of the service is this one's to take.
    void answer_for(std::weak_ptr<EventRoutingImpl> service) noexcept {
        service_ = std::move(service);
    }

    void operator()() {
        const auto service = service_.lock(); // until the broadcast has ended
        const auto batch = take();
        if (!batch)
            return;
        batch->parameters[parameter::cumulative_event_count] = batch->count;
        service->BroadcastEvent(path_, batch->data, batch->parameters, nullptr);
    }

private:
    std::shared_ptr<cumulative_event_data> take() {
        const auto service = std::exchange(service_, {}).lock();
        return service ? service->cumulative_events_.TakeCumulativeEvent(path_) : nullptr;
    }

    std::weak_ptr<EventRoutingImpl> service_; // holding it strongly would keep it for ever
    std::string path_;
};

void EventRoutingImpl::BroadcastCumulativeEvent(threading::universal_timeout delay,
                                                const std::string& path, const event_data& data,
                                                const routing_parameters& parameters,
                                                const std::shared_ptr<tasklib::keep_registered>&) {
    using single_run = tasklib::basic_single_run_sch_params<tasklib::unbiased_clock>;
    delivery later(path);
    if (!cumulative_events_.add(path, data, parameters))
        return;
    later.answer_for(weak_from_this());
    if (has_ended_.load(std::memory_order_relaxed))
        return;
    const auto due = std::make_shared<single_run>(tasklib::deadline(delay).moment());
    const auto scheduler = tasklib::get_task_scheduler();
    const auto processor = tasklib::get_task_processor();
    // Independent: others add to the batch, whatever becomes of the task in which this call
    // happens to be made.
    const auto task = tasklib::make_independent_task(
        "Cumulative event " + path, tasks_->get_low_level_container(), std::move(later));
    try {
        scheduler->schedule(task.share(), processor, due, 0);
    } catch (...) {
        task.cancel();
        throw;
    }
}

} // namespace zel::event_routing::impl
