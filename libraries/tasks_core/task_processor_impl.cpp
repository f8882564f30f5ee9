#include "libraries/tasks_core/task_processor_impl.h"

#include "libraries/tasks_core/running_task.h"

namespace zel::tasklib {

void task_processor_impl::submit(const std::shared_ptr<task_ifc>& task, std::uint32_t) {
    task->set_submitter(shared_from_this());
    try {
        threads_->submit(task);
    } catch (...) {
        task->take_submitter();
        throw;
    }
    // A thread that canceled it a moment ago may have looked for it here in vain.
    if (task->cancellation().is_canceled())
        withdraw(*task);
}

void task_processor_impl::execute(const std::shared_ptr<task_ifc>& task, bool claim) {
    if (threads_->has_ended()) {
        task->cancellation().cancel();
        if (!claim)
            task->run(true); // it is the caller's, and nobody else ends it
        return;
    }
    if (claim && !task->try_claim())
        return;
    threads_->run_begins();
    run_inside(task);
}

void task_processor_impl::withdraw(task_ifc& task) {
    const auto and_what_it_holds = threads_->withdraw(task); // released without the lock
}

} // namespace zel::tasklib
