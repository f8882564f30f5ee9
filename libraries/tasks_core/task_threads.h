// The threads that run tasks, and one that keeps time.
//
// Each thread has a row of tasks of its own, for what is submitted on it; other tasks go into a
// row of all. A thread whose row is empty takes a batch from the row of all, or else half
// of another thread's row, so no task waits for the one before it in a row.
//
// Who submits a task wakes a thread only when none searches. A thread that searched and found
// a task wakes the next while there are more. One that finds none says that it falls asleep,
// looks once more, and sleeps. When none is asleep, threads are added while fewer than there
// are cores run, because the others have announced that they wait; beyond that the watch
// adds one whenever tasks have been pending for a while and none was taken.
#pragma once

#include "libraries/tasks_core/thread_census.h"
#include "libraries/tasks_core/thread_seats.h"

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
    std::shared_ptr<task_ifc> withdraw(task_ifc& task) { return seats_.take_out(task); }
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

    /// Takes nothing on from now. What is pending is left to the caller, who takes it.
    void stop_taking() noexcept;
    std::shared_ptr<task_ifc> take_rest() { return seats_.take_rest(); }
    /// Waits for running tasks, but for those that the calling thread is inside of.
    void join();

    /// Of the workers; for tests.
    std::size_t thread_count() const;

private:
    friend class worker;
    // Whether a task that arrives needs a thread to be woken or started.
    enum class readiness : std::uint32_t {
        none_needed,  // no: one searches, or no more can come
        unless_short, // some run, and will come to it soon if their tasks are short
        nobody_runs,
    };

    void publish_readiness() noexcept ZEL_REQUIRES(guard_);
    void expect_short_runs(bool are_short) noexcept;
    std::exception_ptr bring_thread(const thread_seat* own) noexcept;
    std::exception_ptr call_thread() noexcept;
    std::exception_ptr start_thread() noexcept;
    thread_seat& take_seat() ZEL_REQUIRES(threads_guard_);
    bool are_tasks_left() const noexcept { return !has_ended() && seats_.have_tasks(); }

    // Of a worker.
    std::shared_ptr<task_ifc> search(thread_seat& own) noexcept;
    void begin_search() noexcept;
    void end_search() noexcept;
    bool may_linger() const noexcept;
    bool sleep(thread_seat& own) noexcept;
    void wait_begins(const thread_seat& own) noexcept;
    void wait_ends() noexcept;
    void stand_up(thread_seat& seat, bool unwound) noexcept;

    // The watch, on the timer thread.
    void watch(bool hurried);
    std::optional<platform::milliseconds> look_around(bool look_again_soon);
    bool is_stalled(bool pending, bool progress, std::chrono::steady_clock::time_point now)
        ZEL_REQUIRES(guard_);
    std::size_t threads_to_leave(std::chrono::steady_clock::time_point now) ZEL_REQUIRES(guard_);
    void hurry_watch();
    void send_threads_away(std::size_t count) noexcept;
    std::thread leave_the_list();

    thread_seats seats_;
    // Whether runs take less time than it takes to wake a thread. Relaxed: an estimate.
    std::atomic<bool> runs_are_short_{false};
    // Written under the guard when it changes. Sequentially consistent, like the sizes of the
    // rows: either who submits a task sees that a thread sleeps, or that thread sees the task.
    std::atomic<readiness> readiness_{readiness::none_needed};

    asio::io_context timers_;
    // The timer thread stays in its context, although there is nothing to do.
    asio::executor_work_guard<asio::io_context::executor_type> timers_stay_;
    asio::steady_timer watch_timer_; // of the timer thread alone

    // Guards the counts, the limits and who sleeps; held for a few steps.
    mutable platform::plain_lock guard_;
    task_thread_limits limits_ ZEL_GUARDED_BY(guard_);
    thread_census census_ ZEL_GUARDED_BY(guard_);
    seat_list asleep_ ZEL_GUARDED_BY(guard_); // longest first
    seat_list free_seats_ ZEL_GUARDED_BY(guard_);
    bool sends_all_away_ ZEL_GUARDED_BY(guard_) = false;
    // Acquire and release: written when the end begins.
    std::atomic<bool> ended_{false};
    // Whether the watch pauses for longer than it takes to show what a thread does.
    // Written under the guard; relaxed for those who only look, because one that is missed
    // is seen after the pause.
    std::atomic<bool> watch_is_slow_{true};

    // What the watch remembers from look to look. Only the timer thread uses it.
    std::uint64_t taken_before_ = 0;
    std::optional<std::chrono::steady_clock::time_point> stalled_since_;
    static constexpr std::size_t periods = 30; // looked back at; the oldest is forgotten first
    std::array<std::size_t, periods> most_awake_by_period_{};
    std::size_t period_ = 0;
    std::chrono::steady_clock::time_point period_began_;

    // Guards the list of threads and the making of seats; held while a thread is started, never
    // while a task runs.
    platform::critical_section threads_guard_;
    std::list<std::thread> workers_list_ ZEL_GUARDED_BY(threads_guard_);
    // Joined by the next thread that leaves: any other thread that waited for its end might
    // be needed for tasks.
    std::thread last_that_left_ ZEL_GUARDED_BY(threads_guard_);
    bool no_more_threads_ ZEL_GUARDED_BY(threads_guard_) = false;
    std::thread timer_thread_;
};

} // namespace zel::tasklib
