#include "framework/threading/recursive_shared_mutex.h"

#include "framework/exceptions/exceptions.h"
#include "framework/exceptions/message_of_test.h"
#include "platform/src/watched_thread_test.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>

// Clang's annotations know no recursion.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

using namespace zel::threading;
using zel::platform::event;
using zel::platform::reset_mode;
using zel::platform::watched_thread;

void expect_refused(recursive_shared_mutex& lock) {
    EXPECT_EQ(zel::exceptions::message_of<zel::exceptions::error>([&] { lock.lock(); }),
              "zel::threading::recursive_shared_mutex::try_set_exclusive_mode: writer lock is not "
              "enabled when thread holds reader lock.");
    EXPECT_TRUE(lock.is_held_shared_by_this_thread());
}

// Threads that want the lock; each holds it until all may go on.
class queue_for {
public:
    explicit queue_for(recursive_shared_mutex& lock) : lock_(lock) {}
    ~queue_for() { go_on(); }

    watched_thread& reader(char name) { return add<shared_lock_guard>(name); }
    watched_thread& writer(char name) { return add<exclusive_lock_guard>(name); }
    /// False also when it takes a repeated look at the lock instead of a signal.
    bool let_in(std::size_t count) {
        constexpr zel::platform::milliseconds less_than_a_round{4000};
        while (order().size() < count)
            if (!got_in_.wait(less_than_a_round))
                return false;
        return true;
    }
    void go_on() { release_.set(); }

    /// Who got the lock, in this order.
    std::string order() {
        zel::platform::scoped_lock inside(guard_);
        return order_;
    }

private:
    template <class Guard>
    watched_thread& add(char name) {
        return threads_.emplace_back([this, name] {
            const Guard held(lock_);
            {
                zel::platform::scoped_lock inside(guard_);
                order_ += name;
            }
            got_in_.set();
            release_.wait();
        });
    }

    recursive_shared_mutex& lock_;
    zel::platform::critical_section guard_;
    std::string order_;
    event got_in_{reset_mode::automatic, false};
    event release_{reset_mode::manual, false};
    std::deque<watched_thread> threads_;
};

TEST(RecursiveSharedMutex, IsGivenUpWithTheLastOfAThreadsHoldsOfEitherKind) {
    recursive_shared_mutex lock;
    lock.unlock_shared(); // without a hold: nothing
    lock.lock();
    lock.unlock_shared();
    lock.lock_shared();
    lock.lock_shared();
    lock.lock(); // its own shared holds do not stop a writer
    queue_for queue(lock);
    watched_thread& writer = queue.writer('w');
    for (const auto give_back :
         {&recursive_shared_mutex::unlock_shared, &recursive_shared_mutex::unlock,
          &recursive_shared_mutex::unlock, &recursive_shared_mutex::unlock_shared}) {
        EXPECT_TRUE(writer.falls_asleep());
        EXPECT_EQ(queue.order(), "");
        watched_thread([&] { lock.unlock_shared(); }).join(); // another thread's: nothing
        (lock.*give_back)();
    }
    EXPECT_TRUE(queue.let_in(1));
    EXPECT_FALSE(lock.is_held_shared_by_this_thread());
}

TEST(RecursiveSharedMutex, RefusesExclusivenessToAThreadWithOnlySharedHoldsAndLeavesThem) {
    recursive_shared_mutex lock;
    lock.lock();
    lock.lock_shared();
    lock.unlock(); // what is left of the writer is a plain reader
    expect_refused(lock);
    lock.lock_shared();
    expect_refused(lock);
    lock.unlock_shared();
    queue_for queue(lock);
    queue.reader('r');
    EXPECT_TRUE(queue.let_in(1));
    EXPECT_TRUE(queue.writer('w').falls_asleep());
    expect_refused(lock);
    EXPECT_EQ(queue.order(), "r");
    lock.unlock_shared();
    queue.go_on();
    EXPECT_TRUE(queue.let_in(2));
    lock.lock();
    lock.unlock();
}

TEST(RecursiveSharedMutex, HoldsNewcomersBackBehindAWriterButNotThoseWhoHoldIt) {
    recursive_shared_mutex lock;
    lock.lock_shared();
    queue_for queue(lock);
    queue.reader('a');
    EXPECT_TRUE(queue.let_in(1));
    watched_thread& writer = queue.writer('w');
    EXPECT_TRUE(writer.falls_asleep());
    EXPECT_TRUE(queue.reader('n').falls_asleep());
    EXPECT_TRUE(queue.writer('n').falls_asleep());
    lock.lock_shared();
    lock.unlock_shared();
    lock.unlock_shared();
    EXPECT_TRUE(writer.falls_asleep()) << "the other reader still holds it";
    EXPECT_EQ(queue.order(), "a");
    queue.go_on();
    EXPECT_TRUE(queue.let_in(4));
    EXPECT_EQ(queue.order(), "awnn");
}

TEST(RecursiveSharedMutex, KeepsReadersAndWritersApartUnderLoad) {
    constexpr int rounds = 3000;
    recursive_shared_mutex lock;
    int left = 0; // equal whenever nobody writes
    int right = 0;
    std::atomic<int> torn{0};
    const auto write = [&] {
        const exclusive_lock_guard outer(lock);
        ++left;
        const shared_lock_guard reading(lock);
        const exclusive_lock_guard inner(lock);
        ++right;
    };
    const auto read = [&] {
        const shared_lock_guard outer(lock);
        const int seen = left;
        const shared_lock_guard inner(lock);
        torn += seen != right;
    };
    {
        std::deque<watched_thread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([&, thread] {
                for (int round = 0; round < rounds; ++round)
                    (round + thread) % 3 == 0 ? write() : read();
            });
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(left, 4 * rounds / 3);
    EXPECT_EQ(right, left);
}

} // namespace
