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
    const auto taken = seats_.taken();
    const bool progress = taken != std::exchange(taken_before_, taken);
    const bool pending = are_tasks_left();
    bool starts_extra = false;
    std::size_t leaving = 0;
    std::optional<platform::milliseconds> pause;
    {
        platform::scoped_lock inside(guard_);
        if (is_stalled(pending, progress, now) && census_.asleep() == 0 &&
            census_.threads() < limits_.most_threads) {
            census_.extra_thread_starts();
            publish_readiness();
            starts_extra = true;
        }
        leaving = threads_to_leave(now);
        if (look_again_soon || progress)
            pause = quick;
        else if (pending || census_.awake() > 0)
            pause = limits_.stalled;
        // Nobody hurries the watch when the last run ends, so a long pause for that run's sake
        // would keep the threads that are idle meanwhile and afterwards.
        if (const auto period = limits_.idle / static_cast<int>(periods);
            census_.threads() > limits_.cores)
            pause = std::min(pause.value_or(period), period);
        // Written under the guard, so that a task that arrives from now on finds it.
        watch_is_slow_.store(pause != quick, std::memory_order_relaxed);
    }
    if (starts_extra) {
        start_thread();
    } else if (pending && !progress) {
        expect_short_runs(false); // what is pending is not in hand after all
        call_thread();
    }
    send_threads_away(leaving);
    return pause;
}

bool task_threads::is_stalled(bool pending, bool progress,
                              std::chrono::steady_clock::time_point now) {
    if (!pending || progress)
        stalled_since_.reset();
    if (!pending)
        return false;
    if (!stalled_since_)
        stalled_since_ = now;
    if (now - *stalled_since_ < limits_.stalled)
        return false;
    stalled_since_ = now;
    return true;
}

// How many threads were not needed at any moment of the last periods.
std::size_t task_threads::threads_to_leave(std::chrono::steady_clock::time_point now) {
    if (now - period_began_ >= limits_.idle / static_cast<int>(periods)) {
        period_began_ = now;
        period_ = (period_ + 1) % periods;
        most_awake_by_period_[period_] = census_.take_most_awake();
    }
    const auto needed = std::max<std::size_t>(
        {limits_.cores, census_.most_awake(), std::ranges::max(most_awake_by_period_)});
    return has_ended() ? 0 : census_.threads() - std::min(census_.threads(), needed);
}

} // namespace zel::tasklib
