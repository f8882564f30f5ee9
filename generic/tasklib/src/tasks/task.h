// Making tasks, and the handle with which their maker waits for them.
//
//     const auto handling = make_task("handling of a event", container, [=] { ... });
//     submit_or_cancel(handling.share(), *get_task_processor());
//     if (handling.wait({false, 100'000})) ...
#pragma once

#include "generic/tasklib/src/tasks/basic_task.h"
#include "generic/tasklib/src/tasks/cancellation_propagation.h"
#include "generic/tasklib/src/tasks/impersonation_check.h"

#include "framework/memory/block_stock.h"

#include <framework/threading/universal_timeout.h>
#include <tasklib/ended_state.h>
#include <tasklib/task_container.h>

#include <optional>
#include <type_traits>
#include <utility>

namespace zel::tasklib {

namespace detail {

template <class Value>
class task_with_value;

/// A task that gives nothing but its end.
template <>
class task_with_value<void> : public basic_task {
protected:
    using basic_task::basic_task;
};

template <class Value, class Proc>
class task_with_proc;

template <class Proc>
class task_with_proc<void, Proc> final : public task_with_value<void> {
public:
    template <class Body>
    task_with_proc(task_name name, std::uint32_t tag,
                   const std::shared_ptr<task_container_low_level_ifc>& container, Body&& body)
        : task_with_value<void>(std::move(name), tag, container), body_(std::forward<Body>(body)) {}

private:
    void run_body() override {
        impersonation_check check;
        (*body_)();
        check.body_returned([this] { return name(); });
        body_.reset(); // what it captured is foreign code, too
    }
    void drop_body() noexcept override { body_.reset(); }

    std::optional<Proc> body_;
};

// Always a basic_task.
template <class Body>
std::shared_ptr<task_ifc>
make_shared_task(task_name name, std::uint32_t tag,
                 const std::shared_ptr<task_container_low_level_ifc>& container, Body&& body) {
    using made = task_with_proc<void, std::decay_t<Body>>;
    std::shared_ptr<task_ifc> shared =
        std::allocate_shared<made>(memory::recycling_allocator<made>(), std::move(name), tag,
                                   container, std::forward<Body>(body));
    if (container)
        container->add(shared);
    return shared;
}

} // namespace detail

template <class Value>
class task;

/// Shares a task with its maker.
template <>
class task<void> {
public:
    task() = default;
    /// Of a basic_task.
    explicit task(std::shared_ptr<task_ifc> shared) noexcept : shared_(std::move(shared)) {}

    explicit operator bool() const noexcept { return shared_ != nullptr; }
    const std::shared_ptr<task_ifc>& share() const noexcept { return shared_; }

    /// True once the task has ended, false when the time is over first.
    bool wait(threading::universal_timeout timeout = {}) const {
        return shared_->get_ended_state()->wait_ended(timeout);
    }

    /// Waits for the end and throws what the body threw. A failure that is never
    /// fetched is logged when the task goes.
    void get() const {
        wait();
        if (const auto failure = static_cast<basic_task&>(*shared_).fetch_failure())
            std::rethrow_exception(failure);
    }

    bool cancel() const {
        const auto until_the_end = shared_; // what goes with the task may own this handle
        return until_the_end->cancellation().cancel();
    }

private:
    std::shared_ptr<task_ifc> shared_;
};

/// A task that holds the body and belongs to the container, which may be null. It is
/// canceled with the task that the calling thread is inside of. It runs when it is
/// handed to a processor, or stored in a queue that has a runner. The body and its
/// captures are destroyed before the task leaves the container.
template <class Body>
task<void> make_task(task_name name, const std::shared_ptr<task_container_low_level_ifc>& container,
                     Body&& body, std::uint32_t tag = 0) {
    auto shared =
        detail::make_shared_task(std::move(name), tag, container, std::forward<Body>(body));
    auto& made = static_cast<basic_task&>(*shared);
    try {
        if (const auto around = made.cancellation_around())
            made.follow(register_cancellation_callback(
                around, std::shared_ptr<cancellation_ifc>(shared, &made)));
    } catch (...) {
        made.cancel(); // the container must not wait for it
        throw;
    }
    return task<void>(std::move(shared));
}

/// The same for work that outlasts the task that the calling thread is inside of.
template <class Body>
task<void> make_independent_task(task_name name,
                                 const std::shared_ptr<task_container_low_level_ifc>& container,
                                 Body&& body) {
    return task<void>(
        detail::make_shared_task(std::move(name), 0, container, std::forward<Body>(body)));
}

} // namespace zel::tasklib
