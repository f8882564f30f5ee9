// The threads that run tasks, and one that keeps time.
//
// A thread is either idle, sleeping in the I/O context, or holds a turn: it takes
// pending tasks until there is none. A turn is given out when a task arrives and a
// thread has none. When all have one, threads are added while fewer than there are
// cores run, because the others have announced that they wait; beyond that the
// watch adds one whenever tasks have been pending for a while and none was taken.
#pragma once

#include "libraries/tasks_core/pending_tasks.h"

#include <tasklib/task_threads_module.h>

#include <platform/announced_wait.h>
#include <platform/critical_section.h>
#include <platform/diagnostics.h>
#include <platform/process.h>
#include <platform/timeout.h>

#include <array>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <exception>
#include <list>
#include <optional>
#include <thread>
#include <vector>

namespace zel::tasklib {

class task_threads : public std::enable_shared_from_this<task_threads> {
public:
    explicit task_threads(const task_thread_limits& limits);
    ~task_threads();
    task_threads(const task_threads&) = delete;
    task_threads& operator=(const task_threads&) = delete;

    /// Before all else, once it has succeeded. Throws when the system has no thread to give.
    void start_timer_thread();

    /// See task_threads_module; the limits have been checked. Only notes them down.
    void set_limits(const task_thread_limits& limits) noexcept;
    /// Starts the threads that new limits allow and the pending tasks need.
    void follow_limits();

    /// Throws exceptions::fatal after the end, and what kept the library from seeing to a
    /// thread for the task, which is not taken on then.
    void submit(const std::shared_ptr<task_ifc>& task);
    /// Null when the task is not pending.
    std::shared_ptr<task_ifc> withdraw(task_ifc& task);
    bool has_ended() const noexcept { return ended_.load(std::memory_order_acquire); }

    /// Tells the watch that a run begins on some thread. As a rule that is two instructions.
    void run_begins() noexcept {
        if (watch_is_slow_.load(std::memory_order_relaxed))
            platform::guarded([this] { hurry_watch(); }); // the next run tries again
    }

    /// What the timer thread does besides watching.
    asio::io_context& timers() noexcept { return timers_; }

    /// Has a timer call a function when it is time. Called on the timer thread. While memory
    /// is short it tries again and again, because nobody else would set the timer later.
    template <class Timer, class Function>
    void call_at_the_end_of(Timer& timer, const Function& function) noexcept {
        const auto wait = [&] {
            timer.async_wait([function](const std::error_code& canceled) {
                if (!canceled)
                    function();
            });
        };
        while (platform::guarded(wait) && !timers_.stopped())
            platform::sleep_for(platform::milliseconds(1));
    }

    /// Takes nothing on from now; returns what was pending.
    std::vector<std::shared_ptr<task_ifc>> stop_taking();
    /// Waits for running tasks, but for those that the calling thread is inside of.
    void join();

    /// Of the workers; for tests.
    std::size_t thread_count() const;

private:
    friend class worker;
    enum class need { nothing, turn, thread };

    need next_need() ZEL_REQUIRES(guard_);
    void give_turn() ZEL_REQUIRES(guard_);
    bool are_in_hand() const ZEL_REQUIRES(guard_);
    [[nodiscard]] std::exception_ptr meet(need what);
    std::exception_ptr start_thread() noexcept;
    void take_turn();
    std::shared_ptr<task_ifc>
    take_task(std::optional<std::chrono::steady_clock::duration> last_run);
    std::shared_ptr<task_ifc> take_first() ZEL_REQUIRES(guard_);
    void linger() noexcept;
    void unwound(bool inside_turn) noexcept;
    void wait_begins() noexcept;
    void wait_ends() noexcept;

    // The watch, on the timer thread.
    void watch(bool hurried);
    std::optional<platform::milliseconds> look_around(bool look_again_soon);
    bool is_stalled(std::chrono::steady_clock::time_point now) ZEL_REQUIRES(guard_);
    std::size_t threads_to_leave(std::chrono::steady_clock::time_point now) ZEL_REQUIRES(guard_);
    void hurry_watch();
    void send_threads_away(std::size_t count) noexcept;
    std::thread leave_the_list();

    asio::io_context workers_;
    asio::io_context timers_;
    // Idle threads stay in their context, although there is nothing to do.
    asio::executor_work_guard<asio::io_context::executor_type> workers_stay_;
    asio::executor_work_guard<asio::io_context::executor_type> timers_stay_;
    asio::steady_timer watch_timer_; // of the timer thread alone

    // Guards the row of tasks, the counts and the limits; held for a few steps.
    mutable platform::plain_lock guard_;
    task_thread_limits limits_ ZEL_GUARDED_BY(guard_);
    pending_tasks pending_ ZEL_GUARDED_BY(guard_);
    std::uint64_t taken_ ZEL_GUARDED_BY(guard_) = 0; // how many tasks so far
    // How many runs in a row have taken less time than it takes to wake a thread.
    std::uint32_t short_runs_ ZEL_GUARDED_BY(guard_) = 0;
    std::size_t threads_ ZEL_GUARDED_BY(guard_) = 0;
    std::size_t turns_ ZEL_GUARDED_BY(guard_) = 0;   // given out, never more than threads
    std::size_t waiting_ ZEL_GUARDED_BY(guard_) = 0; // threads in an announced wait
    std::size_t added_ ZEL_GUARDED_BY(guard_) = 0;   // threads, for others that block unseen
    // A thread whose turn is over looks for a moment whether the next task comes, because
    // putting it to sleep and waking it costs more than most tasks. One thread at a time
    // lingers in this way.
    bool somebody_lingers_ ZEL_GUARDED_BY(guard_) = false;
    std::size_t most_turns_ ZEL_GUARDED_BY(guard_) = 0; // since the current period began
    // Tells the thread that lingers. Relaxed: that thread looks again under the guard.
    std::atomic<bool> task_has_come_{false};
    // Written under the guard; acquire and release for those who only look.
    std::atomic<bool> ended_{false};
    // Whether the watch pauses for longer than it takes to show what a thread does.
    // Written under the guard; relaxed for those who only look, because one that is missed
    // is seen after the pause.
    std::atomic<bool> watch_is_slow_{true};

    // What the watch remembers from look to look. Only the timer thread uses it.
    std::uint64_t taken_before_ = 0;
    std::optional<std::chrono::steady_clock::time_point> stalled_since_;
    static constexpr std::size_t periods = 30; // looked back at; the oldest is forgotten first
    std::array<std::size_t, periods> turns_by_period_{};
    std::size_t period_ = 0;
    std::chrono::steady_clock::time_point period_began_;

    // Guards the list of threads; held while one is started, never while a task runs.
    platform::critical_section threads_guard_;
    std::list<std::thread> workers_list_ ZEL_GUARDED_BY(threads_guard_);
    // Joined by the next thread that leaves: any other thread that waited for its end might
    // be needed for tasks.
    std::thread last_that_left_ ZEL_GUARDED_BY(threads_guard_);
    bool no_more_threads_ ZEL_GUARDED_BY(threads_guard_) = false;
    std::thread timer_thread_;
};

} // namespace zel::tasklib
