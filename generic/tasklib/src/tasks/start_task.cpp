#include "generic/tasklib/src/tasks/start_task.h"

#include "generic/tasklib/src/tasks/task_library.h"
#include "generic/tasklib/src/tasks/task_queue.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>

namespace zel::tasklib {

namespace {

// Cancels the task unless `started` is called, even if the thread is unwound while it waits.
class canceling_unless_started {
public:
    explicit canceling_unless_started(task_ifc& task) noexcept : task_(task) {}
    ~canceling_unless_started() {
        if (started_)
            return;
        const platform::no_cancellation to_the_end;
        platform::guarded([&] { task_.cancellation().cancel(); });
    }
    canceling_unless_started(const canceling_unless_started&) = delete;
    canceling_unless_started& operator=(const canceling_unless_started&) = delete;

    void started() noexcept { started_ = true; }

private:
    task_ifc& task_;
    bool started_ = false;
};

} // namespace

void submit_or_cancel(const std::shared_ptr<task_ifc>& task, task_processor_ifc& processor) {
    if (task->cancellation().is_canceled())
        return;
    canceling_unless_started guard(*task);
    processor.submit(task, 0);
    guard.started();
}

void submit_or_cancel(const std::shared_ptr<task_ifc>& task) {
    if (task->cancellation().is_canceled())
        return;
    canceling_unless_started guard(*task);
    submit_to_library(task);
    guard.started();
}

void store_or_cancel(const std::shared_ptr<task_ifc>& task,
                     const std::shared_ptr<task_queue_ifc>& queue,
                     const std::shared_ptr<task_container_ifc>& container,
                     const std::shared_ptr<task_processor_ifc>& processor) {
    if (task->cancellation().is_canceled())
        return;
    canceling_unless_started guard(*task);
    if (queue->push(task))
        ensure_runner(container, processor ? processor : get_task_processor(), queue);
    guard.started();
}

} // namespace zel::tasklib
