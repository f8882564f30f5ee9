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
//   - Who uses callables all the time may announce its uses instead of counting
//     them (announced_call in broadcast_records.h); `retire` has them counted.
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
    /// and whoever is told clears up.
    [[nodiscard]] bool leave() noexcept {
        // Release: what was done inside is done before the last one clears up.
        return state_.fetch_sub(1, std::memory_order_acq_rel) == closed + 1;
    }

    /// Whoever closes the gate is inside until it leaves, and may let others in.
    void close() noexcept { state_.fetch_add(closed + 1, std::memory_order_acq_rel); }
    void enter_closed() noexcept { state_.fetch_add(1, std::memory_order_relaxed); }

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
        retire([] {});
    }

    /// The same where there are uses that were not counted. `count_uses` is asked when
    /// no use begins any more, and calls `count_use` for each.
    template <class CountUses>
    void retire(const CountUses& count_uses) {
        if (lock_.is_held_shared_by_this_thread()) {
            gate_.close();
        } else {
            threading::exclusive_lock_guard no_call_is_running(lock_);
            gate_.close();
        }
        count_uses();
        end_use();
    }
    void count_use() noexcept { gate_.enter_closed(); }
    void end_use() {
        if (gate_.leave()) {
            const platform::no_cancellation to_the_end;
            callable_.reset();
        }
    }

    /// For uses that are not counted; good until their end is announced.
    const Callable& callable() const noexcept { return *callable_; }

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
        if (target_)
            target_->end_use();
    }
    call(const call&) = delete;
    call& operator=(const call&) = delete;

    /// False when the callable was retired before.
    explicit operator bool() const noexcept { return target_ != nullptr; }
    const Callable& operator*() const noexcept { return *target_->callable_; }
    const Callable* operator->() const noexcept { return &**this; }

private:
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
