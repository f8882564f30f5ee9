// The tasks that a thread is inside of, and what the innermost one offers to code
// that runs in it.
#pragma once

#include <tasklib/cancellation_companions.h>
#include <tasklib/placed_task.h>

#include <memory>

namespace zel::tasklib {

/// The right to run a task, for whoever comes first. The task stays until the claim has gone.
class task_claim {
public:
    explicit task_claim(const std::shared_ptr<task_ifc>& task);

    explicit operator bool() const noexcept { return is_ours_; }
    /// Runs the task on the calling thread.
    void run() const;

private:
    const std::shared_ptr<task_ifc>& task_;
    placed_task_ifc* const placed_; // null where the task does not offer it
    const bool is_ours_;
};

/// Runs a task that was pending, unless somebody else has claimed it. What leaves
/// the run is logged; the forced unwinding of the thread passes through.
void run_pending(std::shared_ptr<task_ifc> task);

/// Runs a task that the caller has claimed. It stays until then.
void run_inside(const std::shared_ptr<task_ifc>& task);

/// The cancellation object of the calling thread's innermost task; null outside of tasks.
std::shared_ptr<cancellation_ifc> this_task_cancellation();

} // namespace zel::tasklib
