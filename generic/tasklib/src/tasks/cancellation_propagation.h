// Letting a task that is made inside another one share its cancellation.
#pragma once

#include <tasklib/cancellation.h>
#include <tasklib/keep_registered.h>
#include <tasklib/tasks_core_module.h>

#include <memory>

namespace zel::tasklib {

/// Cancels `made` when the task that the calling thread is inside of is canceled,
/// at once if it is already, for as long as somebody holds the result (a moment longer where
/// that is being canceled just then). Null outside of tasks. Keeps neither of the two alive.
[[nodiscard]] std::shared_ptr<keep_registered>
register_cancellation_callback(tasks_core_module& library,
                               const std::shared_ptr<cancellation_ifc>& made);

} // namespace zel::tasklib
