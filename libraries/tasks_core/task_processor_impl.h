// Hands tasks to the threads.
#pragma once

#include "libraries/tasks_core/task_threads.h"

#include <tasklib/task_processor.h>

namespace zel::tasklib {

class task_processor_impl final : public task_processor_ifc,
                                  public std::enable_shared_from_this<task_processor_impl> {
public:
    explicit task_processor_impl(std::shared_ptr<task_threads> threads) noexcept
        : threads_(std::move(threads)) {}

    void submit(const std::shared_ptr<task_ifc>& task, std::uint32_t flags) override;
    void execute(const std::shared_ptr<task_ifc>& task, bool claim) override;
    void withdraw(task_ifc& task) override;

private:
    const std::shared_ptr<task_threads> threads_;
};

} // namespace zel::tasklib
