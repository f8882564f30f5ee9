// A callable that can be taken away while others use it.
//
// This is the one place where routing services and their monitors let go of a
// callable, and the rules are written down here:
//
//   - Users hold a `retirable` and ask it for the callable each time they need
//     it. Holding a `retirable` does not keep the callable alive.
//   - Work that removal has to wait for runs inside a `running_call`: a shared
//     hold of `lock()`, inside which the callable is asked for and let go.
//   - `retire` first waits for those holds, then marks the callable as retired,
//     so that nobody gets it afterwards, and destroys it last, outside the lock:
//     its destructor may do as it likes. A thread that is itself inside such a
//     hold does not wait for anybody.
//   - A call that was started without a hold is not waited for; its own strong
//     reference keeps the callable until it returns.
#pragma once

#include "framework/threading/recursive_shared_mutex.h"

#include <atomic>
#include <memory>

namespace zel::event_routing::impl {

template <class Callable>
class retirable {
public:
    explicit retirable(const std::shared_ptr<Callable>& callable) : callable_(callable) {}

    threading::recursive_mrsw_mutex& lock() const noexcept { return lock_; }

    /// Looks without taking a reference that could be the last one.
    bool is_retired() const noexcept { return retired_.load(std::memory_order_acquire); }

    /// The callable, or null once it is retired.
    std::shared_ptr<Callable> use() const noexcept {
        // Acquire pairs with the release in `retire`; see the rules above.
        return is_retired() ? nullptr : callable_.lock();
    }

    /// `last` is the owner's reference to the callable.
    void retire(std::shared_ptr<Callable> last) {
        if (lock_.is_held_shared_by_this_thread()) {
            mark_retired();
        } else {
            threading::exclusive_lock_guard no_call_is_running(lock_);
            mark_retired();
        }
        last.reset();
    }

private:
    void mark_retired() noexcept { retired_.store(true, std::memory_order_release); }

    mutable threading::recursive_mrsw_mutex lock_;
    std::weak_ptr<Callable> callable_;
    // Read without the lock by those who only look whether to start.
    std::atomic<bool> retired_{false};
};

/// One call of a handler that its removal waits for.
template <class Callable>
class running_call {
public:
    explicit running_call(const retirable<Callable>& handler)
        : hold_(handler.lock()), callable_(handler.use()) {}

    /// False when the handler was retired before.
    explicit operator bool() const noexcept { return callable_ != nullptr; }
    Callable& operator*() const noexcept { return *callable_; }
    Callable* operator->() const noexcept { return callable_.get(); }

private:
    // Given back after the callable was let go, so that whoever waits for the hold
    // may rely on having the last reference.
    threading::shared_lock_guard hold_;
    std::shared_ptr<Callable> callable_;
};

} // namespace zel::event_routing::impl
