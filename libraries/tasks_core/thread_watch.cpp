// The watch over the threads: shows what they do, adds one where tasks are stuck,
// sends idle ones away. Runs on the timer thread, and only while there is a need.
#include "libraries/tasks_core/task_threads.h"

#include <platform/diagnostics.h>
#include <platform/thread_description.h>

#include <algorithm>
#include <asio/post.hpp>

namespace zel::tasklib {

namespace {

// The name of a thread may lag behind what the thread does by this time.
constexpr platform::milliseconds quick{1};

} // namespace

// Throws when memory is short, and the watch stays as it is.
void task_threads::hurry_watch() {
    // Under the guard: nobody takes the watch for hurried before it is, and what it decides
    // about its next pause comes afterwards.
    platform::scoped_lock inside(guard_);
    if (!watch_is_slow_.load(std::memory_order_relaxed))
        return;
    asio::post(timers_, [this] { watch(true); });
    watch_is_slow_.store(false, std::memory_order_relaxed);
}

void task_threads::watch(bool hurried) {
    const bool names_follow = platform::publish_thread_descriptions();
    const auto pause = look_around(names_follow || hurried);
    watch_timer_.cancel();
    if (!pause)
        return;
    watch_timer_.expires_after(*pause);
    call_at_the_end_of(watch_timer_, [this] { watch(false); });
}

// How long the watch may pause. Empty when it need not look until somebody calls
// `hurry_watch`.
std::optional<platform::milliseconds> task_threads::look_around(bool look_again_soon) {
    const auto now = std::chrono::steady_clock::now();
    need what = need::nothing;
    bool adds = false; // a thread beyond those for the cores
    std::size_t leaving = 0;
    std::optional<platform::milliseconds> pause;
    {
        platform::scoped_lock inside(guard_);
        const bool progress = taken_ != taken_before_;
        if (is_stalled(now) && threads_ < limits_.most_threads && !has_ended()) {
            ++threads_;
            ++added_;
            give_turn();
            what = need::thread;
            adds = true;
        } else if (!progress) {
            short_runs_ = 0; // what is pending is not in hand after all
            what = next_need();
        }
        taken_before_ = taken_;
        leaving = threads_to_leave(now);
        if (look_again_soon || progress)
            pause = quick;
        else if (turns_ > 0 || !pending_.empty())
            pause = limits_.stalled;
        // Nobody hurries the watch when the last run ends, so a long pause for that run's sake
        // would keep the threads that are idle meanwhile and afterwards.
        if (const auto period = limits_.idle / static_cast<int>(periods); threads_ > limits_.cores)
            pause = std::min(pause.value_or(period), period);
        // Written under the guard, so that a task that arrives from now on finds it.
        watch_is_slow_.store(pause != quick, std::memory_order_relaxed);
    }
    std::exception_ptr refusal;
    platform::guarded([&] { refusal = meet(what); });
    if (refusal && adds) {
        platform::scoped_lock inside(guard_);
        added_ -= std::min<std::size_t>(added_, 1); // one of those that leave may have been it
    }
    send_threads_away(leaving);
    return pause;
}

bool task_threads::is_stalled(std::chrono::steady_clock::time_point now) {
    if (pending_.empty() || taken_ != taken_before_) {
        stalled_since_.reset();
        if (pending_.empty())
            return false;
    }
    if (!stalled_since_)
        stalled_since_ = now;
    if (now - *stalled_since_ < limits_.stalled)
        return false;
    stalled_since_ = now;
    return true;
}

// How many threads were not needed at any moment of the last periods. Which of the idle
// threads go does not matter, because the context wakes them in turn.
std::size_t task_threads::threads_to_leave(std::chrono::steady_clock::time_point now) {
    if (now - period_began_ >= limits_.idle / static_cast<int>(periods)) {
        period_began_ = now;
        period_ = (period_ + 1) % periods;
        turns_by_period_[period_] = most_turns_;
        most_turns_ = turns_;
    }
    const auto needed = std::max<std::size_t>(
        {limits_.cores, most_turns_,
         *std::max_element(turns_by_period_.begin(), turns_by_period_.end())});
    if (threads_ <= needed || has_ended())
        return 0;
    const auto leaving = threads_ - needed;
    threads_ = needed;
    added_ -= std::min(added_, leaving);
    return leaving;
}

} // namespace zel::tasklib
