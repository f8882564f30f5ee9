#include "generic/tasklib/src/tasks/cancellation_base.h"

#include "generic/tasklib/src/tasks/tasks_log.h"

#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::tasklib {

static constinit log::source_position callback_failed(__FILE__, 20);

versioned_ifc* cancellation_base::query_interface(const interface_id& wanted) {
    return wanted == versioned_ifc::id || wanted == cancellation_ifc::id ? this : nullptr;
}

bool cancellation_base::cancel() {
    if (canceled_.exchange(true, std::memory_order_acq_rel))
        return true;
    platform::scoped_lock inside(callbacks_guard_);
    if (!callbacks_)
        return false;
    const auto called = *callbacks_; // callbacks change the list
    for (auto* callback : called)
        if (std::find(callbacks_->begin(), callbacks_->end(), callback) != callbacks_->end())
            if (const auto failure = platform::guarded([&] { callback->on_cancel(*this); }))
                tasks_log.report_handler_failure(callback_failed, failure, [] {
                    return std::string("A cancellation callback throws exception!");
                });
    return false;
}

bool cancellation_base::is_canceled() const {
    return canceled_.load(std::memory_order_acquire);
}

void cancellation_base::add_callback(cancellation_callback* callback) {
    platform::scoped_lock inside(callbacks_guard_);
    if (!callbacks_)
        callbacks_ = std::make_unique<std::list<cancellation_callback*>>();
    callbacks_->push_back(callback);
}

void cancellation_base::remove_callback(cancellation_callback* callback) {
    platform::scoped_lock inside(callbacks_guard_);
    if (!callbacks_)
        return;
    const auto found = std::find(callbacks_->begin(), callbacks_->end(), callback);
    if (found != callbacks_->end())
        callbacks_->erase(found);
}

} // namespace zel::tasklib
