#include "framework/threading/recursive_shared_mutex.h"

#include "framework/exceptions/exceptions.h"
#include "platform/src/watched_thread_test.h"

#include <gtest/gtest.h>

// Clang's annotations know no recursion.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

using namespace zel::threading;
using namespace zel::platform;

// A thread that takes the lock and holds it until it is told to leave.
template <class Guard>
struct user_of {
    explicit user_of(recursive_shared_mutex& lock)
        : thread([this, &lock] {
              const Guard held(lock);
              in.set();
              leave.wait();
          }) {}
    ~user_of() { leave.set(); }

    bool waits() { return thread.falls_asleep() && !in.wait(milliseconds(0)); }
    /// False also when it takes a repeated look at the lock instead of a signal.
    bool gets_in() { return in.wait(milliseconds(4000)); }

    event in{reset_mode::manual, false};
    event leave{reset_mode::manual, false};
    watched_thread thread;
};

TEST(RecursiveSharedMutex, IsGivenUpWithTheLastOfAThreadsHoldsOfEitherKind) {
    recursive_shared_mutex lock;
    lock.lock();
    lock.lock_shared();
    lock.lock(); // its own shared holds do not stop a writer
    user_of<exclusive_lock_guard<>> other(lock);
    for (const auto give_back : {&recursive_shared_mutex::unlock, &recursive_shared_mutex::unlock,
                                 &recursive_shared_mutex::unlock_shared}) {
        EXPECT_TRUE(other.waits());
        watched_thread([&] { lock.unlock_shared(); }).join(); // another thread's: nothing
        (lock.*give_back)();
    }
    EXPECT_TRUE(other.gets_in());
}

TEST(RecursiveSharedMutex, LetsAWriterInOnlyWhenReadersAreGoneWhoeverGivesItsSlotUp) {
    recursive_shared_mutex lock;
    lock.lock_shared();
    user_of<exclusive_lock_guard<>> writer(lock);
    EXPECT_TRUE(writer.waits());
    lock.unlock(); // not this thread's to give back
    EXPECT_TRUE(writer.waits());
    lock.unlock_shared();
    EXPECT_TRUE(writer.gets_in());
}

TEST(RecursiveSharedMutex, HoldsNewcomersBackBehindAWriterAndRefusesAReaderThatWantsToWrite) {
    recursive_shared_mutex lock;
    lock.lock();
    lock.lock_shared();
    lock.unlock(); // what is left of the writer is a plain reader
    user_of<shared_lock_guard<>> other(lock);
    EXPECT_TRUE(other.gets_in());
    user_of<exclusive_lock_guard<>> waiting(lock);
    EXPECT_TRUE(waiting.waits());
    user_of<shared_lock_guard<>> newcomer(lock);
    EXPECT_TRUE(newcomer.waits());
    lock.lock_shared(); // who holds it may take more, but not write
    EXPECT_THROW(lock.lock(), zel::exceptions::error);
    lock.unlock_shared();
    lock.unlock_shared();
    EXPECT_TRUE(waiting.waits()) << "the other reader still holds it";
    other.leave.set();
    EXPECT_TRUE(waiting.gets_in());
    EXPECT_TRUE(newcomer.waits());
    waiting.leave.set();
    EXPECT_TRUE(newcomer.gets_in());
}

} // namespace
