// Many-readers/one-writer lock, recursive per thread.
//
// A thread that holds the lock, either way, may take it shared again without
// blocking on itself; one that holds it exclusively may also take it exclusively
// again. A thread that holds it only shared may not ask for it exclusively: that
// throws instead of deadlocking. Once a writer waits, threads without a hold wait
// behind it, while those that already hold the lock shared may take more.
//
// Holds belong to threads, not to guards, and are given back by the thread that
// took them. A thread must give its holds back before it ends, and the child of a fork
// must not go on with one. Waiting is no cancellation point.
#pragma once

#include <platform/critical_section.h>
#include <platform/event.h>
#include <platform/thread_annotations.h>
#include <platform/thread_id.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace zel::threading {

class ZEL_THREAD_ATTRIBUTE(capability("lock")) recursive_shared_mutex {
public:
    recursive_shared_mutex() = default;
    recursive_shared_mutex(const recursive_shared_mutex&) = delete;
    recursive_shared_mutex& operator=(const recursive_shared_mutex&) = delete;

    /// Takes one shared hold; waits while another thread owns the writer slot.
    void lock_shared() ZEL_THREAD_ATTRIBUTE(acquire_shared_capability());
    /// Gives one shared hold back; nothing happens when the thread has none.
    void unlock_shared() ZEL_THREAD_ATTRIBUTE(release_shared_capability());

    /// Takes one exclusive hold: claims the writer slot, then waits until the
    /// shared holds of other threads are gone. Throws exceptions::error when the
    /// calling thread has only shared holds; they stay.
    void lock() ZEL_THREAD_ATTRIBUTE(acquire_capability());
    void unlock() ZEL_THREAD_ATTRIBUTE(release_capability());

private:
    using thread_id = platform::thread_id;

    void try_set_exclusive_mode(thread_id self);
    void wait_for_readers();
    void wait_for_writer_slot() ZEL_REQUIRES(guard_);
    bool has_reader(thread_id self) const ZEL_REQUIRES(guard_) {
        return std::find(readers_.begin(), readers_.end(), self) != readers_.end();
    }

    // Guards every field below. Held for short bookkeeping, never across a wait.
    platform::plain_lock guard_;
    thread_id writer_ ZEL_GUARDED_BY(guard_) = platform::no_thread;
    std::int32_t writer_depth_ ZEL_GUARDED_BY(guard_) = 0;
    // One entry per shared hold, in no order.
    std::vector<thread_id> readers_ ZEL_GUARDED_BY(guard_);
    // The events below are set only while these say that somebody waits: setting one takes
    // a lock, which a release without waiters is spared.
    std::uint32_t waiting_for_slot_ ZEL_GUARDED_BY(guard_) = 0;
    bool waiting_for_readers_ ZEL_GUARDED_BY(guard_) = false;
    // Set when the last reader leaves or the writer slot is given up. Only the owner of the
    // slot waits.
    platform::event readers_drained_{platform::reset_mode::automatic, false};
    // Set when the writer slot is given up.
    platform::event writer_free_{platform::reset_mode::manual, true};
};

/// The lock of a single handler; the same in every respect.
using recursive_mrsw_mutex = recursive_shared_mutex;

template <class Lock = recursive_shared_mutex>
class ZEL_THREAD_ATTRIBUTE(scoped_lockable) shared_lock_guard {
public:
    explicit shared_lock_guard(Lock& lock) ZEL_THREAD_ATTRIBUTE(acquire_shared_capability(lock))
        : lock_(lock) {
        lock_.lock_shared();
    }
    ~shared_lock_guard() ZEL_THREAD_ATTRIBUTE(release_capability()) { lock_.unlock_shared(); }
    shared_lock_guard(const shared_lock_guard&) = delete;
    shared_lock_guard& operator=(const shared_lock_guard&) = delete;

private:
    Lock& lock_;
};

template <class Lock = recursive_shared_mutex>
class ZEL_THREAD_ATTRIBUTE(scoped_lockable) exclusive_lock_guard {
public:
    explicit exclusive_lock_guard(Lock& lock) ZEL_THREAD_ATTRIBUTE(acquire_capability(lock))
        : lock_(lock) {
        lock_.lock();
    }
    ~exclusive_lock_guard() ZEL_THREAD_ATTRIBUTE(release_capability()) { lock_.unlock(); }
    exclusive_lock_guard(const exclusive_lock_guard&) = delete;
    exclusive_lock_guard& operator=(const exclusive_lock_guard&) = delete;

private:
    Lock& lock_;
};

} // namespace zel::threading
