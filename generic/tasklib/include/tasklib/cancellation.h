// Cancelling: a request that work should end, and who wants to hear of it.
//
// Cancelling a task that has not started ends it at once, on the cancelling thread
// and without its body. A running task is only asked: its body looks at
// `is_canceled`, and a cancellable wait inside it throws `canceled_exception`.
#pragma once

#include <tasklib/interface_id.h>

#include <framework/exceptions/exceptions.h>

namespace zel::tasklib {

class cancellation_ifc;

class ZEL_EXPORT cancellation_callback {
public:
    virtual ~cancellation_callback() = default;
    /// Runs on the cancelling thread under the lock of the cancelled object, so it
    /// must not wait for a thread that cancels the same object. It may add and
    /// remove callbacks, itself too. What it throws is logged afterwards. Tasks made inside a
    /// canceled one are canceled when all callbacks have been called.
    virtual void on_cancel(cancellation_ifc& canceled) = 0;
};

class ZEL_EXPORT cancellation_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"EC9BB7D0-2887-4058-AF2E-C25F84CE78D8"};

    /// True when it was canceled before.
    virtual bool cancel() = 0;
    virtual bool is_canceled() const = 0;
    /// The callback is called when this is canceled after now, once for each time that it
    /// was added; the caller removes it before it goes. Check `is_canceled` after adding.
    virtual void add_callback(cancellation_callback* callback) = 0;
    /// Takes back the earliest `add_callback` of the callback that still counts. While a
    /// cancel is calling, a callback is passed over only if none of its additions is left.
    /// Returns when the callback is not running on another thread.
    virtual void remove_callback(cancellation_callback* callback) = 0;
};

/// A wait inside a task ended because the task was canceled. Steers the task to its
/// end and is no std::exception, so that code which contains failures lets it pass.
class ZEL_EXPORT canceled_exception : public exceptions::special_handling {
public:
    const char* type_name() const noexcept override { return "zel::tasklib::canceled_exception"; }
};

} // namespace zel::tasklib
