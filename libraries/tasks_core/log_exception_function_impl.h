// Keeps the host's function for failed tasks.
#pragma once

#include <tasklib/log_exception_function.h>

#include <platform/critical_section.h>
#include <platform/image_use.h>

#include <utility>

namespace zel::tasklib {

class log_exception_function_impl final : public LogExceptionFunctionData {
public:
    void set(function log_exception) override;
    std::shared_ptr<const function> get() const override;

private:
    // Whoever is given the function holds all of this.
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
