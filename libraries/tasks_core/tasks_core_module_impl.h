// The module of the task library, and what it makes on first use.
#pragma once

#include "libraries/tasks_core/task_processor_impl.h"
#include "libraries/tasks_core/task_scheduler_impl.h"

#include <tasklib/tasks_core_module.h>

namespace zel::tasklib {

/// The threads with what hands them tasks; made by the first use, ended before the
/// module.
class task_running {
public:
    task_running();

    const std::shared_ptr<task_processor_impl>& processor() const noexcept { return processor_; }
    const std::shared_ptr<task_scheduler_impl>& scheduler() const noexcept { return scheduler_; }

    /// Whether somebody else holds one of them.
    bool is_used() const noexcept;

    /// Cancels what has not started and waits for the rest.
    void end();

private:
    std::shared_ptr<task_threads> threads_;
    std::shared_ptr<task_processor_impl> processor_;
    std::shared_ptr<task_scheduler_impl> scheduler_;
    std::uint32_t process_;
};

class tasks_core_module_impl final : public tasks_core_module {
public:
    std::shared_ptr<ended_state_ifc> create_ended_state() override;
    std::shared_ptr<task_processor_ifc> get_task_processor() override;
    std::shared_ptr<cancellation_ifc> get_this_taskcancellation() override;
    LogExceptionFunctionData& log_exception_function() override;
    std::shared_ptr<task_scheduler_ifc> get_task_scheduler() override;

    /// Whether the task threads, where there are some, are held by somebody else.
    static bool are_threads_used();
    /// The objects that the library itself keeps, this one not counted.
    static int own_objects();

private:
    LogExceptionFunctionData log_exception_function_;
};

} // namespace zel::tasklib
