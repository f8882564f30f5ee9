// The neighbours that task execution stands on, loaded on first use.
#pragma once

#include <tasklib/performance_logger.h>
#include <tasklib/task_processor.h>
#include <tasklib/task_scheduler.h>
#include <tasklib/tasks_core_module.h>

#include <memory>

namespace zel::tasklib {

/// Throws exceptions::fatal when the task library has ended, exceptions::error or
/// WrongIfcVersion when it cannot be had.
std::shared_ptr<tasks_core_module> get_tasks_module();

/// The same with the object's version checked.
std::shared_ptr<task_processor_ifc> get_task_processor();
std::shared_ptr<task_scheduler_ifc> get_task_scheduler();

/// For a task that is about to be made.
std::shared_ptr<ended_state_ifc> new_ended_state(tasks_core_module& library);

/// The calling thread's cancellation object; null outside of tasks.
std::shared_ptr<cancellation_ifc> get_this_taskcancellation();

/// Throws exceptions::fatal when the library has ended.
std::shared_ptr<performance_logger_storage_module> get_performance_logger_storage_module();

/// Whether runs are measured; false also where the library is not to be had, which
/// is logged once. Costs two loads.
bool is_measuring() noexcept;

} // namespace zel::tasklib
