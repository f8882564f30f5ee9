// A callable that can be taken away while others use it.
//
// This is the one place where routing services and their monitors let go of a
// callable, and the rules are written down here:
//
//   - Users hold a `retirable` and make a `running_call` each time they call it. Holding a
//     `retirable` does not keep the callable alive; a running call does, and removal waits
//     for it. A `call` keeps it alive, too, for a look at it; removal does not wait.
//   - `close` shuts the gate, so that no call begins any more. `finish` waits for the running
//     calls that have begun, unless the thread is itself inside of one, and gives the
//     owner's hold back. `retire` is both. Between the two an owner may wait for all calls,
//     or for so long (`wait_for_all`).
//   - The callable is destroyed last, and no lock is held, because its destructor
//     may do as it likes: by `finish`, or by the last of the calls that had begun
//     before and were not waited for.
//   - Broadcasts call synchronous parts all the time, so they announce their calls instead
//     of counting them (announced_call in broadcast_records.h). `close` has those counted
//     that are inside; the usual removal does not wait for them.
#pragma once

#include <platform/cancellation.h>
#include <platform/wait_on_address.h>

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
    [[nodiscard]] bool enter() noexcept { return enter_as(call); }
    [[nodiscard]] bool enter_running() noexcept { return enter_as(running_call); }

    /// True when the gate is closed and nobody is inside any more. That happens once, and
    /// whoever is told clears up.
    [[nodiscard]] bool leave() noexcept { return leave_as(call); }
    [[nodiscard]] bool leave_running() noexcept { return leave_as(running_call); }

    /// Once. Whoever closes the gate is inside until it leaves, and may let others in.
    void close() noexcept { state_.fetch_add(closed + call, std::memory_order_acq_rel); }
    void enter_closed() noexcept { state_.fetch_add(call, std::memory_order_relaxed); }

    struct inside {
        std::uint32_t running_calls;
        std::uint32_t calls; ///< without whoever has closed the gate
    };
    /// Who is inside of the closed gate.
    inside who_is_inside() const noexcept {
        return inside_of(state_.load(std::memory_order_acquire));
    }

    /// Until no running call is inside. Not a cancellation point.
    void wait_for_running_calls() noexcept {
        wait({}, [](const inside& now) { return now.running_calls == 0; });
    }
    /// Until nobody is, or the moment has come.
    void wait_for_all(platform::wait_deadline until) noexcept {
        wait(until, [](const inside& now) { return now.running_calls + now.calls == 0; });
    }

private:
    // One word, so that each call changes it once on its way in and once on its way out:
    // calls, running calls above them, and two bits.
    static constexpr std::uint64_t call = 1;
    static constexpr std::uint64_t running_call = std::uint64_t(1) << 32;
    static constexpr std::uint64_t awaited = std::uint64_t(1) << 62; // who leaves says so
    static constexpr std::uint64_t closed = std::uint64_t(1) << 63;

    static inside inside_of(std::uint64_t state) noexcept {
        state &= ~(awaited | closed);
        return {static_cast<std::uint32_t>(state / running_call),
                static_cast<std::uint32_t>(state % running_call - call)};
    }

    template <class IsOver>
    void wait(platform::wait_deadline until, const IsOver& is_over) noexcept {
        if (is_over(who_is_inside()))
            return;
        for (bool in_time = true; in_time;) {
            const std::uint32_t seen = leavings_.load(std::memory_order_acquire);
            if (is_over(inside_of(state_.fetch_or(awaited, std::memory_order_acq_rel))))
                return;
            in_time = platform::wait_on_address(leavings_, seen, until);
        }
    }

    // Nobody is inside as a rule, so that is tried without a look before. Acquire pairs
    // with whoever made the callable and with those that were inside.
    bool enter_as(std::uint64_t kind) noexcept {
        std::uint64_t seen = 0;
        while (!state_.compare_exchange_weak(seen, seen + kind, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            if (seen & closed)
                return false;
        return true;
    }
    // Release: what was done inside is done before the last one clears up, and for whoever
    // waits. Whoever leaves holds the gate for a moment longer, as it does before it enters.
    bool leave_as(std::uint64_t kind) noexcept {
        const std::uint64_t left = state_.fetch_sub(kind, std::memory_order_acq_rel) - kind;
        if (left & awaited) {
            leavings_.fetch_add(1, std::memory_order_release);
            platform::wake_one(leavings_);
        }
        return (left & ~awaited) == closed;
    }

    std::atomic<std::uint64_t> state_{0};
    // What a wait sleeps on: a number that another leaving changes.
    std::atomic<std::uint32_t> leavings_{0};
};

template <class Callable>
class retirable {
public:
    explicit retirable(Callable callable) : callable_(std::move(callable)) {}

    /// True from the moment in which no call begins any more.
    bool is_retired() const noexcept { return gate_.is_closed(); }

    /// Once, by the owner.
    void retire() {
        close([] {});
        finish();
    }

    /// The first half. `count_uses` is asked when no use begins any more, and calls
    /// `count_use` for each that was not counted.
    template <class CountUses>
    void close(const CountUses& count_uses) {
        gate_.close();
        count_uses();
    }
    /// The second half, which waits for running calls.
    void finish();

    /// Between the halves: until nobody uses the callable, or the moment has come.
    void wait_for_all(platform::wait_deadline until) noexcept { gate_.wait_for_all(until); }
    /// Between the halves.
    call_gate::inside who_is_inside() const noexcept { return gate_.who_is_inside(); }
    /// Whether the calling thread is inside of a running call.
    bool is_running_here() const noexcept;

    void count_use() noexcept { gate_.enter_closed(); }
    void end_use() noexcept {
        if (gate_.leave())
            clear_up();
    }

    /// For uses that are not counted; good until their end is announced.
    const Callable& callable() const noexcept { return *callable_; }

private:
    template <class>
    friend class call;
    template <class>
    friend class running_call;

    void clear_up() noexcept {
        const platform::no_cancellation to_the_end;
        callable_.reset();
    }

    // Beside the callable: a call needs both.
    call_gate gate_;
    std::optional<Callable> callable_;
};

/// One use of the callable, for as long as it lives. Removal does not wait for it.
template <class Callable>
class call {
public:
    explicit call(retirable<Callable>& target) noexcept
        : target_(target), is_let_in_(target.gate_.enter()) {}
    ~call() {
        if (is_let_in_)
            target_.end_use();
    }
    call(const call&) = delete;
    call& operator=(const call&) = delete;

    /// False when the callable was retired before.
    explicit operator bool() const noexcept { return is_let_in_; }
    const Callable& operator*() const noexcept { return *target_.callable_; }
    const Callable* operator->() const noexcept { return &**this; }

private:
    retirable<Callable>& target_;
    const bool is_let_in_;
};

/// The running calls of a thread, by which a removal finds itself inside of one.
class running_calls_of_this_thread {
public:
    explicit running_calls_of_this_thread(const void* target) noexcept : target_(target) {
        innermost_ = this;
    }
    ~running_calls_of_this_thread() { innermost_ = outer_; }
    running_calls_of_this_thread(const running_calls_of_this_thread&) = delete;
    running_calls_of_this_thread& operator=(const running_calls_of_this_thread&) = delete;

    static bool include(const void* target) noexcept {
        for (auto* c = innermost_; c; c = c->outer_)
            if (c->target_ == target)
                return true;
        return false;
    }

private:
    static inline constinit thread_local const running_calls_of_this_thread* innermost_ = nullptr;

    const void* const target_;
    const running_calls_of_this_thread* const outer_ = innermost_;
};

/// One use that removal waits for.
template <class Callable>
class running_call {
public:
    explicit running_call(retirable<Callable>& target) noexcept
        : target_(target), place_(&target), is_let_in_(target.gate_.enter_running()) {}
    ~running_call() {
        if (is_let_in_ && target_.gate_.leave_running())
            target_.clear_up();
    }
    running_call(const running_call&) = delete;
    running_call& operator=(const running_call&) = delete;

    explicit operator bool() const noexcept { return is_let_in_; }
    const Callable& operator*() const noexcept { return *target_.callable_; }
    const Callable* operator->() const noexcept { return &**this; }

private:
    retirable<Callable>& target_;
    const running_calls_of_this_thread place_;
    const bool is_let_in_;
};

template <class Callable>
bool retirable<Callable>::is_running_here() const noexcept {
    return running_calls_of_this_thread::include(this);
}

template <class Callable>
void retirable<Callable>::finish() {
    if (!is_running_here())
        gate_.wait_for_running_calls();
    end_use();
}

} // namespace zel::event_routing::impl
