#include "libraries/tasks_core/task_scheduler_impl.h"

#include "framework/exceptions/exceptions.h"
#include "generic/tasklib/src/tasks/deadline.h"

#include <tasklib/task_processor.h>

#include <platform/diagnostics.h>

#include <asio/post.hpp>

namespace zel::tasklib {

namespace {

constexpr auto never = unbiased_clock::time_point::max();

} // namespace

task_scheduler_impl::task_scheduler_impl(std::shared_ptr<task_threads> threads)
    : threads_(std::move(threads)), timer_(threads_->timers()) {}

void task_scheduler_impl::schedule(const std::shared_ptr<task_ifc>& task,
                                   const std::shared_ptr<task_processor_ifc>& processor,
                                   const std::shared_ptr<scheduling_parameters_ifc>& parameters,
                                   std::uint32_t) {
    const auto when = deadline(parameters->time_left()).moment();
    task->set_submitter(shared_from_this());
    try {
        insert(task, processor, when);
    } catch (...) {
        task->take_submitter();
        throw;
    }
    // A thread that canceled it a moment ago may have looked for it here in vain.
    if (task->cancellation().is_canceled())
        withdraw(*task);
}

// A task that is here already keeps its time.
void task_scheduler_impl::insert(const std::shared_ptr<task_ifc>& task,
                                 const std::shared_ptr<task_processor_ifc>& processor,
                                 unbiased_clock::time_point when) {
    platform::scoped_lock inside(guard_);
    if (ended_)
        throw exceptions::fatal("Tasks module already destroyed");
    const auto [known, is_new] = places_.try_emplace(task.get());
    if (!is_new)
        return;
    known->second = delayed_.end();
    try {
        // Most delays have one length, so a new task is as a rule the last that is due.
        known->second = delayed_.emplace_hint(delayed_.end(), due{when, ++last_number_},
                                              delayed_task{task, processor});
        // A new first task sets the timer anew. So does one that is due at once, because the
        // timer does not notice a clock that leaps forward, and others may be due with it.
        // Posted under the guard: tasks that come behind the first one rely on its timer.
        if (delayed_.begin() == known->second || when <= unbiased_clock::now())
            asio::post(threads_->timers(), [this] { set_timer(); });
    } catch (...) {
        if (known->second != delayed_.end())
            delayed_.erase(known->second);
        places_.erase(known);
        throw;
    }
}

void task_scheduler_impl::withdraw(task_ifc& task) {
    delayed_task released; // without the lock
    platform::scoped_lock inside(guard_);
    const auto known = places_.find(&task);
    if (known == places_.end())
        return;
    released = std::move(known->second->second);
    delayed_.erase(known->second);
    places_.erase(known);
}

std::vector<std::shared_ptr<task_ifc>> task_scheduler_impl::stop_taking() {
    std::vector<std::shared_ptr<task_ifc>> rest;
    platform::scoped_lock inside(guard_);
    rest.reserve(delayed_.size()); // nothing fails from here on
    ended_ = true;
    for (auto& [key, entry] : delayed_)
        rest.push_back(std::move(entry.task));
    delayed_.clear();
    places_.clear();
    return rest;
}

void task_scheduler_impl::set_timer() {
    auto next = never;
    {
        platform::scoped_lock inside(guard_);
        if (!delayed_.empty())
            next = delayed_.begin()->first.first;
    }
    timer_.cancel();
    if (next == never)
        return;
    timer_.expires_at(next);
    threads_->call_at_the_end_of(timer_, [this] { submit_due(); });
}

void task_scheduler_impl::submit_due() {
    const auto now = unbiased_clock::now();
    while (const auto next = take_first(now)) {
        next->task->take_submitter();
        if (platform::guarded([&] { next->processor->submit(next->task, 0); })) // it must not stay
            platform::guarded([&] { next->task->cancellation().cancel(); });
    }
    set_timer();
}

std::optional<task_scheduler_impl::delayed_task>
task_scheduler_impl::take_first(unbiased_clock::time_point due_by) {
    platform::scoped_lock inside(guard_);
    const auto first = delayed_.begin();
    if (first == delayed_.end() || first->first.first > due_by || first->first.first == never)
        return std::nullopt;
    std::optional taken(std::move(first->second));
    places_.erase(taken->task.get());
    delayed_.erase(first);
    return taken;
}

} // namespace zel::tasklib
