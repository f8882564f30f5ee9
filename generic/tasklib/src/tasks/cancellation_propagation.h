// Letting a task that is made inside another one share its cancellation.
#pragma once

#include <tasklib/cancellation.h>
#include <tasklib/keep_registered.h>

#include <memory>

namespace zel::tasklib {

/// Cancels `made` when the task that `around` stands for is canceled, at once if it is already,
/// for as long as somebody holds the result (a moment longer where that is being canceled just
/// then). Null where `around` does not offer that. Keeps neither of the two tasks alive.
[[nodiscard]] std::shared_ptr<keep_registered>
register_cancellation_callback(const std::shared_ptr<cancellation_ifc>& around,
                               const std::shared_ptr<cancellation_ifc>& made);

} // namespace zel::tasklib
