// A host's own way to hear of failed tasks, in place of the log.
#pragma once

#include <platform/export.h>

#include <exception>
#include <functional>
#include <memory>

namespace zel::tasklib {

/// One per process, reached through `tasks_core_module`. The task library makes and destroys
/// what holds the function: code of the plug-in that sets it would be gone when the last
/// call lets it go.
class ZEL_EXPORT LogExceptionFunctionData {
public:
    using function = std::function<void(const std::exception_ptr& failure)>;

    virtual ~LogExceptionFunctionData() = default;

    /// From now on the function is called with what a failed task threw, on the
    /// thread that ran the task, on several at once; an empty one gives failures
    /// back to the log. A call that is running on another thread may still end later.
    virtual void set(function log_exception) = 0;

    /// Null when none is installed.
    virtual std::shared_ptr<const function> get() const = 0;
};

} // namespace zel::tasklib
