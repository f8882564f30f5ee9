#include "framework/event_routing/src/event_routing/events/cumulative_events.h"

#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "generic/tasklib/src/tasks/deadline.h"
#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_library.h"

#include <utility>

namespace zel::event_routing::impl {

auto cumulative_events::add(const std::string& path, event_data data, routing_parameters parameters)
    -> batch {
    platform::scoped_lock inside(guard_); // what is replaced goes after it
    auto& pending = pending_[path];
    const bool is_first = !pending;
    if (is_first)
        pending = std::make_shared<cumulative_event_data>();
    pending->data.swap(data);
    pending->parameters.swap(parameters);
    ++pending->count;
    return is_first ? pending : nullptr;
}

bool cumulative_events::arrange(const std::string& path, const batch& pending,
                                const std::shared_ptr<tasklib::task_ifc>& delivery) {
    platform::scoped_lock inside(guard_);
    const auto entry = pending_.find(path);
    if (entry == pending_.end() || entry->second != pending)
        return false;
    pending->delivery = delivery;
    return true;
}

auto cumulative_events::TakeCumulativeEvent(const std::string& path) -> batch {
    platform::scoped_lock inside(guard_);
    const auto entry = pending_.find(path);
    return entry == pending_.end() ? nullptr : std::exchange(entry->second, nullptr);
}

bool cumulative_events::take(const std::string& path, const batch& pending) {
    platform::scoped_lock inside(guard_);
    const auto entry = pending_.find(path);
    if (entry == pending_.end() || entry->second != pending)
        return false;
    entry->second = nullptr; // the caller has it
    return true;
}

void cumulative_events::drop_all() {
    decltype(pending_) dropped; // after the guard
    platform::scoped_lock inside(guard_);
    dropped.swap(pending_);
}

// The body of the task that delivers one batch. One that will never run takes its batch
// along, so that the next broadcast begins another instead of adding to it for ever. A later
// batch of the path is not this one's to take.
class EventRoutingImpl::delivery {
public:
    explicit delivery(std::string path) noexcept : path_(std::move(path)) {}
    delivery(delivery&&) noexcept = default;
    ~delivery() { take(service_.lock()); }

    /// From now on a batch of the service is this one's to take.
    void answer_for(std::weak_ptr<EventRoutingImpl> service,
                    const cumulative_events::batch& pending) noexcept {
        service_ = std::move(service);
        batch_ = pending;
    }

    void operator()() {
        const auto service = service_.lock(); // until the broadcast has ended
        if (const auto batch = take(service))
            service->deliver(path_, *batch);
    }

private:
    cumulative_events::batch take(const std::shared_ptr<EventRoutingImpl>& service) {
        const auto batch = std::exchange(batch_, {}).lock();
        const bool is_mine = service && batch && service->cumulative_events_.take(path_, batch);
        return is_mine ? batch : nullptr;
    }

    std::weak_ptr<EventRoutingImpl> service_;    // holding it strongly would keep it for ever
    std::weak_ptr<cumulative_event_data> batch_; // and a payload longer than it is pending
    std::string path_;
};

void EventRoutingImpl::deliver(const std::string& path, cumulative_event_data& batch) {
    batch.parameters[parameter::cumulative_event_count] = batch.count;
    BroadcastEvent(path, batch.data, batch.parameters, nullptr);
}

void EventRoutingImpl::BroadcastCumulativeEvent(threading::universal_timeout delay,
                                                const std::string& path, const event_data& data,
                                                const routing_parameters& parameters,
                                                const std::shared_ptr<tasklib::keep_registered>&) {
    using single_run = tasklib::basic_single_run_sch_params<tasklib::unbiased_clock>;
    delivery later(path);
    const auto batch = cumulative_events_.add(path, data, parameters);
    if (!batch)
        return;
    later.answer_for(weak_from_this(), batch);
    if (has_ended_.load(std::memory_order_relaxed))
        return;
    const auto due = std::make_shared<single_run>(tasklib::deadline(delay).moment());
    const auto scheduler = tasklib::get_task_scheduler();
    const auto processor = tasklib::get_task_processor();
    // Independent: others add to the batch, whatever becomes of the task in which this call
    // happens to be made.
    const auto task = tasklib::make_independent_task(
        "Cumulative event " + path, tasks_->get_low_level_container(), std::move(later));
    if (!cumulative_events_.arrange(path, batch, task.share())) { // flushed meanwhile
        task.cancel();
        return;
    }
    try {
        scheduler->schedule(task.share(), processor, due, 0);
    } catch (...) {
        task.cancel();
        throw;
    }
}

bool EventRoutingImpl::FlushCumulativeEvent(const std::string& path) {
    const auto batch = take_from_delivery(path);
    if (batch)
        deliver(path, *batch);
    return batch != nullptr;
}

bool EventRoutingImpl::CancelCumulativeEvent(const std::string& path) {
    return take_from_delivery(path) != nullptr;
}

cumulative_events::batch EventRoutingImpl::take_from_delivery(const std::string& path) {
    auto batch = cumulative_events_.TakeCumulativeEvent(path);
    if (batch)
        if (const auto task = batch->delivery.lock())
            task->cancellation().cancel(); // or it would wait for a moment of no use
    return batch;
}

} // namespace zel::event_routing::impl
