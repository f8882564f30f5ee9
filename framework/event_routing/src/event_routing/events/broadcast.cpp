// The road of one event, from top to bottom.
#include "framework/event_routing/src/event_routing/events/broadcast.h"

#include "framework/event_routing/src/event_routing/events/asynchronous_part.h"
#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/event_routing/src/event_routing/routing/handler_failures.h"
#include "generic/tasklib/src/tasks/deadline.h"
#include "generic/tasklib/src/tasks/start_task.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

#include <array>
#include <memory_resource>

namespace zel::event_routing::impl {

namespace {

constinit log::source_position
    broadcast_failed("event_routing/framework/event_routing/src/event_routing/broadcast.cpp", 120);

// Enough for some sixty handlers of one path; who collects more takes more from the
// heap.
constexpr std::size_t usual_memory = 2048;

std::string name_of_part(const std::string& path) {
    return "handling of " + path + " event";
}

// This number of milliseconds stands for no limit.
constexpr std::uint32_t no_limit = 0xFFFFFFFF;

} // namespace

void EventRoutingImpl::BroadcastEvent(const std::string& paths, const event_data& data,
                                      const routing_parameters& parameters,
                                      const std::shared_ptr<tasklib::keep_registered>&) {
    broadcast event(*this, paths, data, parameters);
    try {
        event.enter();
        event.take_monitors();
        event.choose_parameters();
        event.recall_handlers();
        event.collect_handlers();
        event.RouteEvent();
        event.wait_for_tasks();
    } catch (const std::exception&) {
        routing_log.report(log::severity::failed_operation, broadcast_failed,
                           std::current_exception(),
                           [&] { return " Broadcasting of '" + paths + "' event failed."; });
    }
}

void EventRoutingImpl::broadcast::enter() {
    message_.enter(*service_.threads_);
}

void EventRoutingImpl::broadcast::take_monitors() {
    monitors_ = service_.monitors_->GetMonitors(message_);
    if (!monitors_.empty())
        begin_.emplace();
}

void EventRoutingImpl::broadcast::choose_parameters() {
    if (!parameters_->empty())
        if (const auto found = parameters_->find(parameter::synchronous);
            found != parameters_->end())
            patience_ = static_cast<std::uint32_t>(found->second.number);
    if (monitors_.empty())
        return;
    if (!is_numbered(*parameters_))
        parameters_ =
            &numbered_.add_number(*message_.record(), *parameters_, next_event_message_id());
    tells_monitors_ = true;
}

// Finds the same handlers as the last time, if no registration has changed since. It comes
// after the snapshot of the monitors, so that each of these is told of every handler that
// was registered before the monitor.
void EventRoutingImpl::broadcast::recall_handlers() {
    generation_ = service_.routing_lock_.current_generation();
    if (routing_lock::is_stable(generation_))
        matches_.recall(paths_, generation_);
}

// Empty pieces are no paths.
template <class Use>
void EventRoutingImpl::broadcast::split_paths(const Use& use) const {
    text::for_each_piece(paths_, ";", [&](std::string_view path) {
        if (!path.empty())
            use(path);
        return true;
    });
}

// The only step that holds the routing lock.
void EventRoutingImpl::broadcast::collect_handlers() {
    if (matches_)
        return;
    flattening matches(paths_, generation_);
    std::array<std::byte, usual_memory> buffer;
    std::pmr::monotonic_buffer_resource memory(buffer.data(), buffer.size());
    event_routing_node::collected_handlers collected(&memory);
    const auto failure = platform::guarded([&] {
        split_paths([&](std::string_view path) {
            collected.clear();
            {
                threading::shared_lock_guard map_is_stable(service_.routing_lock_);
                service_.map_.CollectHandlers(path, collected);
            }
            matches.FlattenHandlers(path, collected);
        });
    });
    if (failure) { // monitors hear of what was found
        matches_.keep(matches.take());
        std::rethrow_exception(failure);
    }
    matches_.remember(matches.take());
}

void EventRoutingImpl::broadcast::RouteEvent() {
    for (const auto& handler : matches_->handlers)
        run_handler(handler);
}

void EventRoutingImpl::broadcast::run_handler(const MultiPathHandlerInfo& handler) {
    const announced_call body(message_, removal_waits::no, *handler.handler);
    if (!body)
        return;
    const auto& [synchronous_part, asynchronous_part] = body->function;
    if (synchronous_part && !run_synchronous_part(handler, synchronous_part))
        return;
    if (asynchronous_part)
        start_asynchronous_part(handler, body->additional_data.queue);
}

// What the part answers; false also when it throws.
bool EventRoutingImpl::broadcast::run_synchronous_part(const MultiPathHandlerInfo& handler,
                                                       const synchronous_event_part& part) {
    const measurement_scope measured(monitors_);
    bool answer = false;
    const auto failure =
        platform::guarded([&] { answer = part(*handler.path, data_, *parameters_); });
    if (failure)
        synchronous_part_failed(failure, *handler.path, handler.level,
                                handler.handler->description);
    measured.end(message_, monitors_, "Sync: ", handler, data_, *parameters_);
    return answer;
}

void EventRoutingImpl::broadcast::start_asynchronous_part(
    const MultiPathHandlerInfo& handler, const std::shared_ptr<tasklib::task_queue_ifc>& queue) {
    if (service_.has_ended_.load(std::memory_order_relaxed))
        return;
    // The path belongs to the list, which the name keeps for the part as well.
    tasklib::task_name name(&name_of_part, {matches_.share(), handler.path});
    const auto task = tasklib::make_task(
        std::move(name), service_.tasks_->low_level(),
        asynchronous_part(*service_.threads_, handler, data_, *parameters_, monitors_.share()));
    // A broadcast that waits for its parts starts them past their queues: it may run inside of
    // a part of such a queue, and then nothing behind that part starts before it returns.
    if (queue && !patience_)
        tasklib::store_or_cancel(task.share(), queue, service_.tasks_);
    else
        tasklib::submit_or_cancel(task.share());
    if (patience_)
        tasks_.push_back(task);
}

void asynchronous_part::operator()() const {
    const auto threads = threads_.shared_from_this(); // the part may end its service
    message_scope message(*threads);
    message.frame().list.name_one(*handler_->handler);
    monitors_.name_in(message);
    const announced_call body(message, removal_waits::yes, *handler_->handler);
    if (!body)
        return;
    const measurement_scope measured(monitors_);
    body->function.asynchronous_part(*handler_->path, data_, parameters_);
    measured.end(message, monitors_, "Async: ", *handler_, data_, parameters_);
}

// One limit for all together. The first task that takes too long ends the waiting.
void EventRoutingImpl::broadcast::wait_for_tasks() const {
    if (!patience_)
        return;
    const tasklib::deadline until(
        *patience_ == no_limit
            ? threading::universal_timeout()
            : threading::universal_timeout{false, *patience_ * std::int64_t(1000)});
    for (const auto& task : tasks_)
        if (!task.wait(until.time_left()))
            break;
}

EventRoutingImpl::broadcast::~broadcast() noexcept(false) {
    if (!tells_monitors_)
        return;
    const platform::no_cancellation to_the_end;
    if (const auto failure = platform::guarded([&] { tell_monitors(); }))
        report_exception(failure);
}

EventRoutingImpl::broadcast::counting::~counting() {
    const auto failure = platform::guarded([&] {
        if (const auto finished = event.service_.statistics_.UpdateStatistics(
                event.message_.record(), event.paths_)) {
            const platform::no_cancellation to_the_end;
            WriteStatistics(*finished);
        }
    });
    if (failure)
        report_exception(failure);
}

void EventRoutingImpl::broadcast::tell_monitors() const {
    tell_of_broadcast(message_, monitors_, *begin_, paths_, matches_.get(), data_, *parameters_);
}

} // namespace zel::event_routing::impl
