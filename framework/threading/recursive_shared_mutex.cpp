#include "framework/threading/recursive_shared_mutex.h"

#include "framework/exceptions/exceptions.h"

namespace zel::threading {

namespace {

// A wait is a round: whatever ends it, the condition is looked at again. A
// signal that should ever be missed costs this much at most.
constexpr platform::milliseconds longest_round{5000};

} // namespace

void recursive_shared_mutex::lock_shared() {
    const thread_id self = platform::this_thread_id();
    platform::scoped_lock inside(guard_);
    // A thread with a hold goes on even while a writer waits for it, or both
    // would wait for each other.
    while (writer_ != platform::no_thread && writer_ != self && !has_reader(self))
        wait_for_writer_slot();
    readers_.push_back(self);
}

void recursive_shared_mutex::unlock_shared() {
    const thread_id self = platform::this_thread_id();
    platform::scoped_lock inside(guard_);
    const auto entry = std::find(readers_.begin(), readers_.end(), self);
    if (entry == readers_.end())
        return;
    *entry = readers_.back();
    readers_.pop_back();
    if (waiting_for_readers_ && readers_.empty())
        readers_drained_.set();
}

void recursive_shared_mutex::lock() {
    try_set_exclusive_mode(platform::this_thread_id());
    wait_for_readers();
}

void recursive_shared_mutex::try_set_exclusive_mode(thread_id self) {
    platform::scoped_lock inside(guard_);
    while (writer_ != self) {
        if (has_reader(self))
            throw exceptions::error(
                "zel::threading::recursive_shared_mutex::try_set_exclusive_mode: writer lock is "
                "not enabled when thread holds reader lock.");
        if (writer_ == platform::no_thread) {
            writer_ = self;
            writer_depth_ = 0;
            break;
        }
        wait_for_writer_slot();
    }
    ++writer_depth_;
}

void recursive_shared_mutex::wait_for_readers() {
    platform::scoped_lock inside(guard_);
    // A nested hold never waits: the readers that are left are this thread's own. One whose
    // slot another thread gave up meanwhile, against the rules, does wait.
    while (writer_depth_ <= 1 && !readers_.empty()) {
        waiting_for_readers_ = true;
        guard_.unlock();
        readers_drained_.wait(longest_round);
        guard_.lock();
        waiting_for_readers_ = false;
    }
}

void recursive_shared_mutex::wait_for_writer_slot() {
    // Reset inside the guard, so that only a later release can end the wait.
    writer_free_.reset();
    ++waiting_for_slot_;
    guard_.unlock();
    writer_free_.wait(longest_round);
    guard_.lock();
    --waiting_for_slot_;
}

void recursive_shared_mutex::unlock() {
    platform::scoped_lock inside(guard_);
    if (--writer_depth_ > 0)
        return;
    writer_ = platform::no_thread;
    if (waiting_for_slot_ != 0)
        writer_free_.set();
    if (waiting_for_readers_)
        readers_drained_.set();
}

} // namespace zel::threading
