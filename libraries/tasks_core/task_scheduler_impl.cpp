#include "libraries/tasks_core/task_scheduler_impl.h"

#include "framework/exceptions/exceptions.h"
#include "generic/tasklib/src/tasks/deadline.h"

#include <tasklib/task_processor.h>

#include <platform/diagnostics.h>

#include <algorithm>
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
        // What is due at once has the timer look also at what is due before: a clock that was
        // set on in one leap is not noticed otherwise.
        if (insert(task, processor, when) || when <= unbiased_clock::now())
            asio::post(threads_->timers(), [this] { set_timer(); });
    } catch (...) {
        withdraw(*task);
        task->take_submitter();
        throw;
    }
    // Who canceled it a moment ago may have looked for it in vain.
    if (task->cancellation().is_canceled())
        withdraw(*task);
}

// True when the timer has to be set to this one. A task that is here already keeps
// its time.
bool task_scheduler_impl::insert(const std::shared_ptr<task_ifc>& task,
                                 const std::shared_ptr<task_processor_ifc>& processor,
                                 unbiased_clock::time_point when) {
    platform::scoped_lock inside(guard_);
    if (ended_)
        throw exceptions::fatal("Tasks module already destroyed");
    const auto [known, is_new] = places_.try_emplace(task.get());
    if (!is_new)
        return false;
    try {
        // Delays of one length, as most are, come in the order of their ends.
        known->second = delayed_.emplace_hint(delayed_.end(), due{when, ++last_number_},
                                              delayed_task{task, processor});
    } catch (...) {
        places_.erase(known);
        throw;
    }
    return delayed_.begin() == known->second;
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
    timer_.async_wait([this](const std::error_code& canceled) {
        if (!canceled)
            submit_due();
    });
}

void task_scheduler_impl::submit_due() {
    std::vector<delayed_task> all_due;
    platform::guarded([&] { all_due = take_due(); }); // without memory: the next time
    for (const auto& due_now : all_due) {
        due_now.task->take_submitter();
        if (platform::guarded([&] { due_now.processor->submit(due_now.task, 0); }))
            due_now.task->cancellation().cancel(); // it must not stay behind
    }
    set_timer();
}

std::vector<task_scheduler_impl::delayed_task> task_scheduler_impl::take_due() {
    std::vector<delayed_task> taken;
    const auto now = unbiased_clock::now();
    const auto is_due = [now](const due& key) { return key.first <= now && key.first != never; };
    platform::scoped_lock inside(guard_);
    taken.reserve(static_cast<std::size_t>(
        std::ranges::count_if(delayed_, is_due, [](const auto& entry) { return entry.first; })));
    while (!delayed_.empty() && is_due(delayed_.begin()->first)) {
        places_.erase(delayed_.begin()->second.task.get());
        taken.push_back(std::move(delayed_.begin()->second));
        delayed_.erase(delayed_.begin());
    }
    return taken;
}

} // namespace zel::tasklib
