// Something with a body that runs once: the part of a task that knows nothing of
// containers and queues.
#pragma once

#include "generic/tasklib/src/tasks/cancellation_base.h"

#include <tasklib/ended_state.h>

#include <platform/critical_section.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
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
    runnable(runnable_kind kind, std::string name, std::shared_ptr<ended_state_ifc> ended_state);

    /// The first call runs the body, unless it is to be skipped, and then all that
    /// belongs to the end of a run, also when the thread is unwound from inside.
    void run_once(bool skip_body);

    /// From here on nobody raises the priority of the thread for this one's sake: the
    /// thread may end, and its number be used again.
    void stop_running() ZEL_REQUIRES(guard_) {
        ended_state_->set_running_thread(platform::no_thread);
    }

    const std::string& name() const noexcept { return name_; }

    // Guards what changes while a task goes from place to place; held for a few
    // steps only, and by a canceler that raises the running thread's priority.
    mutable platform::plain_lock guard_;
    const std::shared_ptr<ended_state_ifc> ended_state_;

private:
    struct ending;

    /// Shows on the thread what it does, after keeping what it showed before.
    virtual void prepare_thread(std::optional<std::string>& shown_before) = 0;
    virtual void run_body() = 0;
    /// Destroys the body and what it captured.
    virtual void drop_body() noexcept = 0;
    /// Stops running and leaves those who hold the task.
    virtual void leave_holders(const std::shared_ptr<runnable>& self) = 0;
    virtual void restore_thread(std::string shown_before) noexcept = 0;

    void body_failed(const std::exception_ptr& failure);
    void end_run(const std::shared_ptr<runnable>& self,
                 std::optional<std::string> shown_before) noexcept;

    const runnable_kind kind_;
    // Relaxed exchange: decides who runs; the body is published by whoever hands
    // the task over.
    std::atomic<std::uint32_t> started_{0};
    bool failure_fetched_ ZEL_GUARDED_BY(guard_) = false;
    const std::string name_;
    std::exception_ptr failure_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::tasklib
