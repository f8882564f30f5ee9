// A thread of a test whose falling asleep can be waited for: tests of waits need to
// know that a thread has begun to wait, and a pause would only make that likely.
#pragma once

#include <platform/credentials.h>
#include <platform/event.h>

#include <functional>
#include <thread>

namespace zel::platform {

/// How long a test waits for something that must happen.
inline constexpr milliseconds patience{10'000};

/// False when the thread ends instead, or stays awake for too long.
bool wait_until_asleep(thread_id thread);

/// Ends the calling thread by unwinding it.
[[noreturn]] void end_this_thread();

/// Whether something holds in a copy of the process, whose only thread looks. It may
/// also exit, with the code 0.
bool holds_in_a_child(const std::function<bool()>& look);

/// Whom the process acts for: an ordinary user may take on nobody else.
user_identity own_identity();

/// Less urgent than the calling thread is, which is always granted; the thread may be below
/// normal already.
int lower_priority();

/// Set once, for all who wait.
struct signal : event {
    signal() noexcept : event(reset_mode::manual, false) {}
    bool comes() { return wait(patience); }
};

class watched_thread {
public:
    explicit watched_thread(auto body)
        : thread_([this, body] {
              id_ = this_thread_id();
              started_.set();
              body();
          }) {}

    bool falls_asleep() { return started_.wait(patience) && wait_until_asleep(id_); }
    void join() { thread_.join(); }

private:
    event started_{reset_mode::manual, false};
    thread_id id_ = no_thread;
    std::jthread thread_;
};

} // namespace zel::platform
