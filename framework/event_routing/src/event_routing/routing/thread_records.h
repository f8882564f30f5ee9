// What each thread is doing for messages, written by itself and read by those who take
// something away.
//
// A message writes into a frame of its thread's record which handlers it runs and which of
// them it calls, and a removal looks there (retirable.h). So messages on different threads
// write no memory in common. A frame also names the list of handlers and the snapshot of
// monitors that the message uses without owning a reference; who replaces those keeps them
// until no frame names them.
//
//     message_scope running(threads);                // on the stack of the message
//     const auto* list = records.recall(running, text, generation);
//     announced_call call(running, removal_waits::no, handler);
//
// Naming something is published with a full fence, before the first call of a message that
// uses it. A removal therefore needs the heavy barrier, which reaches all threads, only when
// its callable is among what another thread names; if it was named later, the message finds
// the callable retired.
//
// A list that a service keeps stays named after the message has ended, until the frame names
// something else or the service ends. So a thread that sends the same message again and again
// has its list at hand and makes no fence. But once a thread has told monitors of anything, each
// removal of a monitor finds a snapshot named and needs the barrier.
#pragma once

#include "framework/event_routing/src/event_routing/routing/service_parts.h"

#include <platform/critical_section.h>
#include <platform/thread_value.h>
#include <platform/wait_on_address.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace zel::event_routing::impl {

class thread_records;

/// What is called: a message calls one of each at a time, the monitor inside of the handler.
enum class callable_role { handler, monitor };

enum class removal_waits : std::uintptr_t { no = 0, yes = 1 };

/// What a removal and calls know of a callable; see retirable.
class retirable_base {
public:
    /// True from the moment in which no call begins any more.
    bool is_retired() const noexcept { return is_retired_.load(std::memory_order_seq_cst); }
    callable_role role() const noexcept { return role_; }

protected:
    explicit retirable_base(callable_role role) noexcept : role_(role) {}
    ~retirable_base() = default;

private:
    friend class thread_records;

    const callable_role role_;
    // Sequentially consistent, like the naming of lists: of a message that names a list and
    // then looks here, and a removal that writes here and then looks at what is named, at
    // least one sees the other.
    std::atomic<bool> is_retired_{false};
    // Changes with each counted call that leaves; a removal sleeps on it. Release and acquire:
    // what was done inside is done for whoever waited.
    std::atomic<std::uint32_t> leavings_{0};
    // All under the guard of the records: the removal and the counted calls, those of them
    // that removals wait for, and whether one does.
    std::uint32_t uses_ = 0;
    std::uint32_t awaited_ = 0;
    bool somebody_waits_ = false;
};

/// Where a thread announces what it calls.
struct call_place {
    // The address of the callable, with removal_waits in the lowest bit, or 0. Written by
    // the thread alone; see announced_call for its order.
    std::atomic<std::uintptr_t> target{0};
    bool is_counted = false; // by a removal; under the guard of the records
};

/// What can be named as a list of handlers.
class handler_list_base {
public:
    virtual std::size_t size() const noexcept = 0; ///< how many handlers
    virtual bool contains(const retirable_base& handler) const noexcept = 0;

protected:
    ~handler_list_base() = default;
};

/// What a message uses without a reference: a list of handlers, or a snapshot of monitors.
class named_use {
public:
    // What a word says, if it is not 0:
    //   an address                   what a keeper has; a removal looks into a list of handlers
    //   an address or 0, | opaque    something that nobody may look into
    //   an address | one             this handler and nothing else
    static constexpr std::uintptr_t opaque = 1;
    static constexpr std::uintptr_t one = 2;

    std::uintptr_t word() const noexcept { return word_.load(std::memory_order_seq_cst); }
    bool is(const void* used) const noexcept {
        return (word() & ~opaque) == reinterpret_cast<std::uintptr_t>(used);
    }

    // By the thread alone.

    /// Names what the message has a reference to.
    void name_opaque(const void* used = nullptr) noexcept {
        name(reinterpret_cast<std::uintptr_t>(used) | opaque, nullptr);
    }
    void name_one(const retirable_base& handler) noexcept {
        name(reinterpret_cast<std::uintptr_t>(&handler) | one, nullptr);
    }
    /// Names what is only known to be there if `is_still_there` says so afterwards. Then it
    /// stays until something else is named here, or the keeper ends.
    template <class Check>
    bool name_if(const void* used, const void* keeper, const Check& is_still_there) noexcept {
        const auto word = reinterpret_cast<std::uintptr_t>(used);
        name(word | opaque, keeper);
        if (!is_still_there()) {
            keeper_.store(nullptr, std::memory_order_release);
            return false;
        }
        word_.store(word, std::memory_order_release);
        return true;
    }
    /// The last that was named here, if this keeper has it, else null. As long
    /// as the keeper lives, what it has and is named here is not destroyed.
    const void* last_of(const void* keeper) const noexcept {
        if (keeper_.load(std::memory_order_relaxed) != keeper)
            return nullptr;
        // Null where the keeper was another one of the same address, which has ended.
        return reinterpret_cast<const void*>(word_.load(std::memory_order_relaxed));
    }
    void end_message() noexcept {
        // Release: whoever finds nothing named may destroy what was.
        if (!keeper_.load(std::memory_order_relaxed))
            word_.store(0, std::memory_order_release);
    }

    /// By a keeper that ends, when nobody uses what it has without a reference.
    void forget(const void* keeper) noexcept {
        // The word first: whoever sees a word of another keeper then also sees that keeper, or
        // a later one, never this one.
        auto word = word_.load(std::memory_order_acquire);
        const bool is_kept = word != 0 && (word & (opaque | one)) == 0;
        if (is_kept && keeper_.load(std::memory_order_acquire) == keeper)
            word_.compare_exchange_strong(word, 0, std::memory_order_relaxed);
    }

private:
    // Only words with one of the bits: the keeper may be that of the word before until it is
    // stored, and a keeper that ends must not take the new word for its own.
    void name(std::uintptr_t word, const void* keeper) noexcept {
        word_.exchange(word, std::memory_order_seq_cst);
        keeper_.store(keeper, std::memory_order_release);
    }

    // Sequentially consistent where a message names something and then looks whether it is
    // still there, or whom it calls is retired; else release and acquire.
    std::atomic<std::uintptr_t> word_{0};
    // Who has what is named, if that stays named after the message; else null. Written while
    // the word has one of the bits, so what is named without them is the keeper's. Release
    // and acquire for that.
    std::atomic<const void*> keeper_{nullptr};
};

/// The frame of one message. Read by others, so it has lines of the cache of its own.
struct alignas(64) message_frame {
    named_use list;
    named_use snapshot;

    call_place& place_of(callable_role role) noexcept {
        return role == callable_role::handler ? handler : monitor;
    }
    call_place handler;
    call_place monitor;
};

/// Of one thread. Made with its first message and gone with the thread.
class thread_record {
public:
    thread_record() = default;
    ~thread_record();
    thread_record(const thread_record&) = delete;
    thread_record& operator=(const thread_record&) = delete;

    /// By the thread itself. Throws std::bad_alloc.
    message_frame& enter() {
        message_frame& frame = depth_ < first_.frames.size() ? first_.frames[depth_] : deep_frame();
        ++depth_;
        return frame;
    }
    void leave() noexcept { --depth_; }

    thread_part* part_of(const void* service) const noexcept { return parts_.find(service); }

private:
    friend class thread_records;

    // Messages inside of messages; more than these are rare.
    struct block {
        std::array<message_frame, 8> frames;
        // Sequentially consistent like what is named in its frames: a removal that does not
        // see a block counts on the message there to find its callable retired.
        std::atomic<block*> next{nullptr};
    };

    message_frame& deep_frame();

    block first_;
    std::size_t depth_ = 0;
    service_parts parts_;
};

/// All threads that have sent messages through this copy of the library. Any thread may
/// call any operation.
class thread_records : public std::enable_shared_from_this<thread_records> {
public:
    /// Made for the first service, and gone with the last of those that hold it.
    static std::shared_ptr<thread_records> shared();

    thread_records();
    /// No message is under way.
    ~thread_records();
    thread_records(const thread_records&) = delete;
    thread_records& operator=(const thread_records&) = delete;

    /// Throws std::bad_alloc.
    thread_record& of_this_thread() {
        void* const known = own_record_.get();
        return known ? *static_cast<thread_record*>(known) : add_record();
    }

    /// Closes the callable, so that no call begins any more, and counts those that are inside.
    void close(retirable_base& removed) noexcept;
    /// Whether this thread is inside of a call; of one that removals wait for.
    bool is_inside(const retirable_base& callable) const noexcept;
    bool is_inside_awaited(const retirable_base& callable) const noexcept;

    struct counted_calls {
        std::uint32_t awaited; ///< for which a removal waits
        std::uint32_t others;
    };
    /// Of a closed callable, those that are still inside.
    counted_calls calls_inside(const retirable_base& removed) const noexcept;
    /// Until no awaited call of a closed callable is inside. Not a cancellation point.
    void wait_for_awaited_calls(retirable_base& removed) noexcept;
    /// Until none is, or the moment has come.
    void wait_for_all_calls(retirable_base& removed, platform::wait_deadline until) noexcept;

    /// Whether that was the last use of the callable, so that it can be destroyed. The
    /// removal itself is a use.
    bool end_removal(retirable_base& removed) noexcept;
    /// The same for a call that has found its callable retired.
    bool end_call(call_place& place, retirable_base& used, removal_waits waited) noexcept;

    /// Whether a frame names this list or snapshot, so that it has to be kept.
    bool is_named(const void* used) const noexcept;
    /// No frame names anything of this keeper any more, and no removal looks into it. What
    /// messages still use of it they have references to.
    void forget_uses_of(const void* keeper) noexcept;

    /// Keeps a part of a service in this thread's record. Throws std::bad_alloc.
    void add_part(thread_record& own, const void* service, std::unique_ptr<thread_part> part);
    /// Destroys the parts of a service that ends.
    void drop_parts(const void* service) noexcept;

private:
    thread_record& add_record();
    static void thread_ends(void* records, void* record) noexcept;
    bool may_be_named_elsewhere(const retirable_base& removed) const noexcept;
    void count_uses(retirable_base& removed) noexcept;
    bool announces(const retirable_base& callable, std::uintptr_t kind) const noexcept;
    template <class IsOver>
    void wait(retirable_base& removed, platform::wait_deadline until,
              const IsOver& is_over) noexcept;

    template <class Test>
    bool any_frame(const Test& test) const ZEL_REQUIRES(guard_);

    // Guards the list of records, which a removal walks, and what is said to be under it
    // above. Never held while foreign code runs. Nested in it are the guards of parts.
    mutable platform::plain_lock guard_;
    std::vector<std::unique_ptr<thread_record>> records_ ZEL_GUARDED_BY(guard_);
    platform::thread_value own_record_{&thread_ends, this};
};

/// A message on its way through the frame of its thread. Nested like the messages.
class message_scope {
public:
    message_scope() = default;
    explicit message_scope(thread_records& threads) { enter(threads); }
    ~message_scope() {
        if (!frame_)
            return;
        frame_->snapshot.end_message();
        frame_->list.end_message();
        record_->leave();
    }
    message_scope(const message_scope&) = delete;
    message_scope& operator=(const message_scope&) = delete;

    /// Once. Throws std::bad_alloc.
    void enter(thread_records& threads) {
        threads_ = &threads;
        record_ = &threads.of_this_thread();
        frame_ = &record_->enter();
    }

    thread_records& threads() const noexcept { return *threads_; }
    message_frame& frame() const noexcept { return *frame_; }
    /// Null before `enter`.
    thread_record* record() const noexcept { return record_; }

private:
    thread_records* threads_ = nullptr;
    thread_record* record_ = nullptr;
    message_frame* frame_ = nullptr;
};

} // namespace zel::event_routing::impl
