// A host's own way to hear of failed tasks, in place of the log.
#pragma once

#include <platform/critical_section.h>
#include <platform/image_use.h>

#include <exception>
#include <functional>
#include <memory>
#include <utility>

namespace zel::tasklib {

/// One per process, reached through `tasks_core_module`.
class LogExceptionFunctionData {
public:
    using function = std::function<void(const std::exception_ptr& failure)>;

    /// From now on the function is called with what a failed task threw, on the
    /// thread that ran the task, on several at once; an empty one gives failures
    /// back to the log. A call that is running on another thread may still end later.
    void set(function log_exception) {
        auto replacement =
            log_exception ? std::make_shared<const installed>(std::move(log_exception)) : nullptr;
        platform::scoped_lock inside(guard_);
        function_.swap(replacement); // the former one is destroyed outside of the lock
    }

    /// Null when none is installed.
    std::shared_ptr<const function> get() const {
        platform::scoped_lock inside(guard_);
        return function_ ? std::shared_ptr<const function>(function_, &function_->callable)
                         : nullptr;
    }

private:
    struct installed {
        explicit installed(function f)
            : use(platform::image_that_made(f), "function for failed tasks", {}),
              callable(std::move(f)) {}

        const platform::image_use use; // ends after the callable
        const function callable;
    };

    mutable platform::plain_lock guard_; // guards the pointer; never held while it is called
    std::shared_ptr<const installed> function_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::tasklib
