// A callable that can be taken away while others use it.
//
// This is the one place where routing services and their monitors let go of a
// callable, and the rules are written down here:
//
//   - Users hold a `retirable` and make a `call` each time they need the callable.
//     Holding a `retirable` does not keep the callable alive; a call does.
//   - A call that removal has to wait for is a `running_call`, which takes a shared
//     hold of `lock()` around it.
//   - `retire` first waits for those holds and then, still under the lock, closes
//     the gate, so that no call begins afterwards. A thread that is itself inside
//     such a hold does not wait for anybody.
//   - The callable is destroyed last and outside the lock, because its destructor
//     may do as it likes: by `retire`, or by the last of the calls that had begun
//     before and were not waited for.
#pragma once

#include "framework/threading/recursive_shared_mutex.h"

#include <platform/cancellation.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

namespace zel::event_routing::impl {

/// Counts the calls that are inside and lets none in once it is closed.
class call_gate {
public:
    bool is_closed() const noexcept { return state_.load(std::memory_order_acquire) & closed; }

    /// False when the gate is closed.
    [[nodiscard]] bool enter() noexcept {
        // Nobody is inside as a rule, so that is tried without a look before. Acquire
        // pairs with whoever made the callable and with those that were inside.
        std::uint32_t seen = 0;
        while (!state_.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            if (seen & closed)
                return false;
        return true;
    }

    /// True when the gate is closed and nobody is inside any more. That happens once,
    /// in `leave` or in `close`, and whoever is told clears up.
    [[nodiscard]] bool leave() noexcept {
        // Release: what was done inside is done before the last one clears up.
        return state_.fetch_sub(1, std::memory_order_acq_rel) == closed + 1;
    }
    [[nodiscard]] bool close() noexcept {
        return state_.fetch_or(closed, std::memory_order_acq_rel) == 0;
    }

private:
    static constexpr std::uint32_t closed = 1u << 31; // below it the number of calls

    std::atomic<std::uint32_t> state_{0};
};

template <class Callable>
class retirable {
public:
    explicit retirable(Callable callable) : callable_(std::move(callable)) {}

    threading::recursive_mrsw_mutex& lock() const noexcept { return lock_; }

    /// True from the moment in which no call begins any more.
    bool is_retired() const noexcept { return gate_.is_closed(); }

    /// Once, by the owner.
    void retire() {
        bool nobody_inside = false;
        if (lock_.is_held_shared_by_this_thread()) {
            nobody_inside = gate_.close();
        } else {
            threading::exclusive_lock_guard no_call_is_running(lock_);
            nobody_inside = gate_.close();
        }
        if (nobody_inside)
            callable_.reset();
    }

private:
    template <class>
    friend class call;

    // Beside the callable: a call needs both.
    call_gate gate_;
    std::optional<Callable> callable_;
    mutable threading::recursive_mrsw_mutex lock_;
};

/// One use of the callable, for as long as it lives. Removal does not wait for it.
template <class Callable>
class call {
public:
    explicit call(retirable<Callable>& target) noexcept
        : target_(target.gate_.enter() ? &target : nullptr) {}
    ~call() {
        if (target_ && target_->gate_.leave())
            clear_up();
    }
    call(const call&) = delete;
    call& operator=(const call&) = delete;

    /// False when the callable was retired before.
    explicit operator bool() const noexcept { return target_ != nullptr; }
    const Callable& operator*() const noexcept { return *target_->callable_; }
    const Callable* operator->() const noexcept { return &**this; }

private:
    void clear_up() {
        const platform::no_cancellation to_the_end;
        target_->callable_.reset();
    }

    retirable<Callable>* target_;
};

/// One use that removal waits for.
template <class Callable>
class running_call {
public:
    explicit running_call(retirable<Callable>& target) : hold_(target.lock()), call_(target) {}

    explicit operator bool() const noexcept { return static_cast<bool>(call_); }
    const Callable& operator*() const noexcept { return *call_; }
    const Callable* operator->() const noexcept { return &*call_; }

private:
    // Given back after the callable was let go, so that whoever waited for the hold
    // may rely on being the last.
    threading::shared_lock_guard<> hold_;
    call<Callable> call_;
};

} // namespace zel::event_routing::impl
