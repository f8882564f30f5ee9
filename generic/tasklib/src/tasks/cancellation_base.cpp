#include "generic/tasklib/src/tasks/cancellation_base.h"

#include "generic/tasklib/src/tasks/tasks_log.h"

#include <tasklib/cancellation_companions.h>

#include <platform/diagnostics.h>

#include <gsl/util>
#include <utility>

namespace zel::tasklib {

static constinit log::source_position callback_failed(__FILE__, 20);

versioned_ifc* cancellation_base::query_interface(const interface_id& wanted) {
    return wanted == versioned_ifc::id || wanted == cancellation_ifc::id ? this : nullptr;
}

bool cancellation_base::cancel() {
    if (canceled_.exchange(true, std::memory_order_acq_rel))
        return true;
    aftermath after;
    call_callbacks(after);
    for (const auto& companion : after.companions)
        if (auto failure = platform::guarded([&] { companion->propagate_cancel(); }))
            platform::guarded([&] { after.failures.push_back(std::move(failure)); });
    for (const auto& failure : after.failures)
        tasks_log.report_handler_failure(callback_failed, failure, [] {
            return std::string("A cancellation callback throws exception!");
        });
    return false;
}

void cancellation_base::call_callbacks(aftermath& after) {
    platform::scoped_lock inside(callbacks_guard_);
    if (!callbacks_)
        return;
    auto* const outer = std::exchange(aftermath_, &after);
    const auto restored = gsl::finally([&] { aftermath_ = outer; });
    callbacks_->call_all([&](cancellation_callback& callback) {
        if (auto failure = platform::guarded([&] { callback.on_cancel(*this); }))
            platform::guarded([&] { after.failures.push_back(std::move(failure)); });
    });
}

void cancellation_base::propagate_after_callbacks(
    const std::shared_ptr<cancellation_companion_ifc>& to) {
    if (!aftermath_ || platform::guarded([&] { aftermath_->companions.push_back(to); }))
        to->propagate_cancel();
}

bool cancellation_base::is_canceled() const {
    return canceled_.load(std::memory_order_acquire);
}

void cancellation_base::add_callback(cancellation_callback* callback) {
    platform::scoped_lock inside(callbacks_guard_);
    if (!callbacks_)
        callbacks_ = std::make_unique<callback_list>();
    callbacks_->add(callback);
}

void cancellation_base::remove_callback(cancellation_callback* callback) {
    platform::scoped_lock inside(callbacks_guard_);
    if (callbacks_)
        callbacks_->remove(callback);
}

} // namespace zel::tasklib
