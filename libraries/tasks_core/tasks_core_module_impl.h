// The module of the task library, and what it makes on first use.
#pragma once

#include "libraries/tasks_core/log_exception_function_impl.h"
#include "libraries/tasks_core/task_processor_impl.h"
#include "libraries/tasks_core/task_scheduler_impl.h"

#include <tasklib/task_threads_module.h>
#include <tasklib/tasks_core_module.h>

namespace zel::tasklib {

/// The threads with what hands them tasks; made by the first use, ended before the
/// module. Not synchronised.
class task_running {
public:
    /// Throw when memory or a thread is refused; the next call tries again.
    const std::shared_ptr<task_processor_impl>& processor() { return start(), processor_; }
    const std::shared_ptr<task_scheduler_impl>& scheduler() { return start(), scheduler_; }

    const task_thread_limits& limits() const noexcept { return limits_; }
    /// Returns the threads that are to follow them, or null.
    std::shared_ptr<task_threads> set_limits(const task_thread_limits& limits) noexcept;

    /// False when nobody has asked for the processor, and after the end.
    static bool submit(const std::shared_ptr<task_ifc>& task);

    /// Whether somebody else holds one of them.
    bool is_used() const noexcept;
    bool has_started() const noexcept { return threads_ != nullptr; }

    /// Cancels what has not started and waits for the rest.
    void end();

private:
    void start();

    task_thread_limits limits_;
    std::shared_ptr<task_threads> threads_;
    std::shared_ptr<task_processor_impl> processor_;
    std::shared_ptr<task_scheduler_impl> scheduler_;
    std::uint32_t process_ = 0;
};

class tasks_core_module_impl final : public tasks_core_module, public versioned_ifc {
public:
    tasks_core_module_impl();
    ~tasks_core_module_impl() override;

    versioned_ifc* query_interface(const interface_id& wanted) override;

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
    log_exception_function_impl log_exception_function_;
};

/// Its second module, for hosts.
class task_threads_module_impl final : public task_threads_module {
public:
    const mi::LibraryDescriptor& GetLibraryDescriptor() const override;
    void set_limits(const task_thread_limits& limits) override;
    task_thread_limits get_limits() override;
};

} // namespace zel::tasklib
