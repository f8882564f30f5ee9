// Something with a body that runs once: the part of a task that knows nothing of
// containers and queues.
#pragma once

#include "generic/tasklib/src/tasks/cancellation_base.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_name.h"

#include <platform/critical_section.h>
#include <platform/thread_description.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace zel::tasklib {

enum class runnable_kind : std::uint32_t { unspecified = 0, thread = 1, task = 2 };

/// As messages name it.
const char* name_of(runnable_kind kind) noexcept;

/// Always a shared object. A failure that nobody fetched is logged when it goes.
class runnable : public cancellation_base, public std::enable_shared_from_this<runnable> {
public:
    ~runnable() override;
    runnable(const runnable&) = delete;
    runnable& operator=(const runnable&) = delete;

    /// What the body threw, or null. Counts as looked at from then on.
    std::exception_ptr fetch_failure();

protected:
    /// Throws what get_tasks_module throws.
    runnable(runnable_kind kind, task_name name) : name_(std::move(name)), kind_(kind) {}

    /// The first call runs the body, unless it is to be skipped, and then all that
    /// belongs to the end of a run, also when the thread is unwound from inside. The caller
    /// keeps the object until then.
    void run_once(bool skip_body) {
        if (begin())
            run_begun(skip_body);
    }
    /// For the caller for whom `begin` was true, or who has set `started` himself.
    void run_begun(bool skip_body);

    std::string name() const { return name_.text(); }

    // What has happened so far, and where a task is kept.
    enum progress : std::uint32_t {
        claimed = 1,         // somebody is going to run it
        started = 2,         // run_begun was called
        completed = 4,       // no follow-up is stored any more
        stopped = 8,         // nobody looks at its thread or at the holder any more
        has_follow_ups = 16, // they are started at the end
        looked_at = 32,      // somebody, who holds the guard, may be about to look at these
        elsewhere = 64,      // a place has it that is no pool
        forgotten = 128      // the container that held it has gone, or has taken it out
    };
    // Acquire and release where another thread relies on more than the bits.
    mutable std::atomic<std::uint32_t> progress_{0};
    // Guards what few tasks have; held for a few steps only, and by a canceler that raises
    // the running thread's priority.
    mutable platform::plain_lock guard_;
    const own_ended_state ended_state_;

private:
    class measurement;
    struct ending;

    virtual void run_body() = 0;
    /// Destroys the body and what it captured.
    virtual void drop_body() noexcept = 0;
    /// Stops running and leaves those who hold the task. Ends the activity before any of
    /// them may find the task ended.
    virtual void leave_holders(platform::shown_activity& on_thread) = 0;

    // Relaxed: decides who runs; the body is published by whoever hands the task over.
    bool begin() noexcept {
        return !(progress_.fetch_or(started, std::memory_order_relaxed) & started);
    }
    void body_failed(const std::exception_ptr& failure);
    void end_run(platform::shown_activity& on_thread) noexcept;

    const task_name name_;
    std::exception_ptr failure_ ZEL_GUARDED_BY(guard_);
    const runnable_kind kind_;
    bool failure_fetched_ ZEL_GUARDED_BY(guard_) = false;
};

} // namespace zel::tasklib
