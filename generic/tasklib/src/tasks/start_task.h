// Handing a task over, so that it is never left behind: when that fails, the task
// is canceled before the exception goes on. A task that was canceled before has ended
// and is handed to nobody.
#pragma once

#include <tasklib/task_container.h>
#include <tasklib/task_processor.h>
#include <tasklib/task_queue.h>

namespace zel::tasklib {

void submit_or_cancel(const std::shared_ptr<task_ifc>& task, task_processor_ifc& processor);
/// To the processor of the task library.
void submit_or_cancel(const std::shared_ptr<task_ifc>& task);

/// Stores the task in the queue and sees to a runner, which belongs to the
/// container. Without a processor, that of the task library runs it.
void store_or_cancel(const std::shared_ptr<task_ifc>& task,
                     const std::shared_ptr<task_queue_ifc>& queue,
                     const std::shared_ptr<task_container_ifc>& container,
                     const std::shared_ptr<task_processor_ifc>& processor = nullptr);

} // namespace zel::tasklib
