#include "libraries/tasks_core/log_exception_function_impl.h"

namespace zel::tasklib {

void log_exception_function_impl::set(function log_exception) {
    auto replacement =
        log_exception ? std::make_shared<const installed>(std::move(log_exception)) : nullptr;
    platform::scoped_lock inside(guard_);
    function_.swap(replacement); // the former one is destroyed outside of the lock
}

std::shared_ptr<const LogExceptionFunctionData::function> log_exception_function_impl::get() const {
    platform::scoped_lock inside(guard_);
    return function_ ? std::shared_ptr<const function>(function_, &function_->callable) : nullptr;
}

} // namespace zel::tasklib
