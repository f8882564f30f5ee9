#include "generic/tasklib/src/tasks/cancellation_base.h"

#include "generic/tasklib/src/tasks/tasks_log.h"

#include <tasklib/cancellation_companions.h>

#include <platform/diagnostics.h>

#include <algorithm>
#include <gsl/util>
#include <utility>

namespace zel::tasklib {

namespace {

constinit log::source_position callback_failed(__FILE__, 20);

template <class Callback>
void log_failure_of(const Callback& callback) {
    if (const auto failure = platform::guarded(callback))
        tasks_log.report_handler_failure(callback_failed, failure, [] {
            return std::string("A cancellation callback throws exception!");
        });
}

} // namespace

versioned_ifc* cancellation_base::query_interface(const interface_id& wanted) {
    return wanted == versioned_ifc::id || wanted == cancellation_ifc::id ? this : nullptr;
}

bool cancellation_base::cancel() {
    if (canceled_.exchange(true, std::memory_order_acq_rel))
        return true;
    companions later;
    call_callbacks(later);
    for (const auto& companion : later)
        log_failure_of([&] { companion->propagate_cancel(); });
    return false;
}

void cancellation_base::call_callbacks(companions& later) {
    platform::scoped_lock inside(callbacks_guard_);
    if (!callbacks_)
        return;
    auto* const outer = std::exchange(collected_, &later);
    const auto collected = gsl::finally([&] { collected_ = outer; });
    const auto called = *callbacks_; // callbacks change the list
    for (auto* callback : called)
        if (std::find(callbacks_->begin(), callbacks_->end(), callback) != callbacks_->end())
            log_failure_of([&] { callback->on_cancel(*this); });
}

void cancellation_base::propagate_after_callbacks(
    const std::shared_ptr<cancellation_companion_ifc>& to) {
    if (collected_)
        collected_->push_back(to);
    else
        to->propagate_cancel();
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
