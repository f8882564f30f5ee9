// The cancellation state of a task.
#pragma once

#include "generic/tasklib/src/tasks/callback_list.h"

#include <tasklib/cancellation.h>

#include <platform/critical_section.h>

#include <atomic>
#include <exception>
#include <memory>
#include <vector>

namespace zel::tasklib {

class cancellation_companion_ifc;

class cancellation_base : public cancellation_ifc {
public:
    versioned_ifc* query_interface(const interface_id& wanted) override;
    bool cancel() override;
    bool is_canceled() const override;
    void add_callback(cancellation_callback* callback) override;
    void remove_callback(cancellation_callback* callback) override;

    /// For callbacks: has the companion canceled too, once the guard under which they run
    /// is given back. Canceling destroys what others have captured, which may wait for
    /// whoever wants that guard.
    static void propagate_after_callbacks(const std::shared_ptr<cancellation_companion_ifc>& to);

private:
    // What follows once the guard is given back: foreign code, too.
    struct aftermath {
        std::vector<std::shared_ptr<cancellation_companion_ifc>> companions;
        std::vector<std::exception_ptr> failures;
    };

    void call_callbacks(aftermath& after);

    // Of the callbacks that run on this thread and are this copy's of the library: a task
    // that was made inside another copy's is canceled at once.
    static inline constinit thread_local aftermath* aftermath_ = nullptr;

    // Acquire and release: who sees the flag sees what led to it.
    std::atomic<bool> canceled_{false};
    // Guards the list and stays held while callbacks run, so that a removed one is
    // running nowhere. Recursive: callbacks add and remove callbacks.
    platform::critical_section callbacks_guard_;
    // Null as long as nobody wants to hear of it, as with most tasks.
    std::unique_ptr<callback_list> callbacks_ ZEL_GUARDED_BY(callbacks_guard_);
};

} // namespace zel::tasklib
