// The tasks that a thread is inside of, and what the innermost one offers to code
// that runs in it.
#pragma once

#include <tasklib/cancellation_companions.h>
#include <tasklib/task_ifc.h>

#include <memory>

namespace zel::tasklib {

/// Runs a task that was pending, unless somebody else has claimed it. What leaves
/// the run is logged; the forced unwinding of the thread passes through.
void run_pending(std::shared_ptr<task_ifc> task);

/// Runs a claimed task on the calling thread.
void run_inside(std::shared_ptr<task_ifc> task);

/// The cancellation object of the calling thread's innermost task; null outside of tasks.
std::shared_ptr<cancellation_ifc> this_task_cancellation();

} // namespace zel::tasklib
