// A callable that can be taken away while others use it.
//
// This is the one place where routing services and their monitors let go of a
// callable, and the rules are written down here:
//
//   - Users hold a `retirable` and make a `call` each time they need the callable.
//     Holding a `retirable` does not keep the callable alive; a call does.
//   - A call that removal has to wait for is a `running_call`.
//   - `retire` first closes the gate, so that no call begins any more, and then waits
//     for the running calls that have begun. A thread that is itself inside of one does
//     not wait for anybody.
//   - The callable is destroyed last, and no lock is held, because its destructor
//     may do as it likes: by `retire`, or by the last of the calls that had begun
//     before and were not waited for.
//   - Until it is destroyed it counts as a use of the images whose code it is, so these
//     stay mapped, however late that is.
//   - Who uses callables all the time may announce its uses instead of counting
//     them (announced_call in broadcast_records.h); `retire` has them counted.
#pragma once

#include <platform/cancellation.h>
#include <platform/image_use.h>
#include <platform/wait_on_address.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string_view>
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
    [[nodiscard]] bool leave() noexcept { return leave_as(call) == closed; }
    [[nodiscard]] bool leave_running() noexcept {
        const std::uint64_t left = leave_as(running_call);
        if ((left & closed) && !runs(left)) {
            // Release: what was done inside is done for whoever waited for it.
            drained_.store(1, std::memory_order_release);
            platform::wake_one(drained_);
        }
        return left == closed;
    }

    /// Once. Whoever closes the gate is inside until it leaves, and may let others in.
    /// Whether there are running calls to wait for.
    bool close() noexcept {
        return runs(state_.fetch_add(closed + call, std::memory_order_acq_rel));
    }
    void enter_closed() noexcept { state_.fetch_add(call, std::memory_order_relaxed); }
    /// Until no running call is inside. Not a cancellation point.
    void wait_for_running_calls() const noexcept {
        while (drained_.load(std::memory_order_acquire) == 0)
            platform::wait_on_address(drained_, 0, {});
    }

private:
    // One word, so that each call changes it once on its way in and once on its way out:
    // calls, running calls above them, and a bit.
    static constexpr std::uint64_t call = 1;
    static constexpr std::uint64_t running_call = std::uint64_t(1) << 32;
    static constexpr std::uint64_t closed = std::uint64_t(1) << 63;
    static bool runs(std::uint64_t state) noexcept { return (state & ~closed) >= running_call; }

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
    // Release: what was done inside is done before the last one clears up.
    std::uint64_t leave_as(std::uint64_t kind) noexcept {
        return state_.fetch_sub(kind, std::memory_order_acq_rel) - kind;
    }

    std::atomic<std::uint64_t> state_{0};
    // Set once the gate is closed and the last running call has left.
    std::atomic<std::uint32_t> drained_{0};
};

/// Whose code a callable is, and what it is to the user. Two parts may be of two images.
struct callable_code {
    const char* kind = "";
    platform::image_handle image = platform::image_handle::none;
    platform::image_handle second_image = platform::image_handle::none;
};

template <class Callable>
class retirable {
public:
    /// Name and note are those of its uses, and must outlive it.
    explicit retirable(Callable callable, const callable_code& code = {},
                       std::string_view name = {}, std::string_view note = {})
        : use_(code.image, code.kind, name, note),
          second_use_(code.second_image == code.image ? platform::image_handle::none
                                                      : code.second_image,
                      code.kind, name, note),
          callable_(std::move(callable)) {}

    /// True from the moment in which no call begins any more.
    bool is_retired() const noexcept { return gate_.is_closed(); }

    /// Once, by the owner.
    void retire() {
        retire([] {});
    }

    /// The same where there are uses that were not counted. `count_uses` is asked when
    /// no use begins any more, and calls `count_use` for each.
    template <class CountUses>
    void retire(const CountUses& count_uses);
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
        use_.end();
        second_use_.end();
    }

    platform::image_use use_;
    platform::image_use second_use_;
    // Beside the callable: a call needs both.
    call_gate gate_;
    std::optional<Callable> callable_; // destroyed before its uses end
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
template <class CountUses>
void retirable<Callable>::retire(const CountUses& count_uses) {
    const bool is_inside = running_calls_of_this_thread::include(this);
    if (gate_.close() && !is_inside)
        gate_.wait_for_running_calls();
    count_uses();
    end_use();
}

} // namespace zel::event_routing::impl
