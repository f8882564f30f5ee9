// Hands tasks to the threads.
#pragma once

#include "libraries/tasks_core/task_threads.h"

#include <tasklib/placed_task.h>
#include <tasklib/task_processor.h>

namespace zel::tasklib {

class pool_door;

class task_processor_impl final : public task_processor_ifc,
                                  public std::enable_shared_from_this<task_processor_impl> {
public:
    explicit task_processor_impl(std::shared_ptr<task_threads> threads) noexcept;
    ~task_processor_impl() override;

    void submit(const std::shared_ptr<task_ifc>& task, std::uint32_t flags) override;
    void execute(const std::shared_ptr<task_ifc>& task, bool claim) override;
    void withdraw(task_ifc& task) override;

private:
    void enter(task_ifc& task);

    const std::shared_ptr<task_threads> threads_;
    pool_door* const door_; // null when there was none left
};

} // namespace zel::tasklib
