#include "libraries/tasks_core/task_threads.h"

#include "framework/exceptions/exceptions.h"
#include "libraries/tasks_core/running_task.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>
#include <platform/impersonation_watch.h>
#include <platform/process.h>

#include <algorithm>
#include <asio/post.hpp>

namespace zel::tasklib {

namespace {

// Some ten microseconds. To wake a sleeping processor takes as long or longer, in a
// virtual machine above all.
constexpr int lingering_spins = 500;

// About what it takes to wake a thread.
constexpr std::chrono::microseconds short_run{10};
constexpr std::uint32_t short_runs_to_rely_on = 32;
constexpr std::size_t short_backlog = 8; // tasks

} // namespace

// A thread of the pool while it lives.
class worker final : public platform::thread_lender {
public:
    explicit worker(task_threads& threads) noexcept : threads_(threads) {
        current_ = this;
        platform::set_thread_lender(this);
    }
    ~worker();
    worker(const worker&) = delete;
    worker& operator=(const worker&) = delete;

    static worker* current() noexcept { return current_; }

    void wait_begins() noexcept override { threads_.wait_begins(); }
    void wait_ends() noexcept override { threads_.wait_ends(); }

    void work() {
        const platform::own_code_only between_the_tasks;
        // The loop goes on after a turn, for the next one; it ends when the thread is
        // sent away or the context is stopped.
        while (!sent_away_ && threads_.workers_.run_one() != 0) {
        }
        unwound_ = false;
    }
    void send_away() noexcept { sent_away_ = true; }

    bool inside_turn = false;

private:
    // Initial-exec: one load, no call, and nothing to destroy.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local worker* current_;

    task_threads& threads_;
    bool sent_away_ = false;
    bool unwound_ = true; // unless the work is left in the regular way
};

constinit thread_local worker* worker::current_ = nullptr;

worker::~worker() {
    platform::set_thread_lender(nullptr);
    current_ = nullptr;
    if (unwound_)
        threads_.unwound(inside_turn);
    const platform::no_cancellation to_the_end;
    if (auto left_before = threads_.leave_the_list(); left_before.joinable())
        left_before.join();
}

task_threads::task_threads(const task_thread_limits& limits)
    : timers_(1), workers_stay_(workers_.get_executor()), timers_stay_(timers_.get_executor()),
      watch_timer_(timers_), limits_(limits) {}

task_threads::~task_threads() = default;

void task_threads::start_timer_thread() {
    timer_thread_ = std::thread([this] { timers_.run(); });
}

void task_threads::set_limits(const task_thread_limits& limits) noexcept {
    platform::scoped_lock inside(guard_);
    limits_ = limits;
}

void task_threads::follow_limits() {
    const auto meets_a_need = [&] {
        need what = need::nothing;
        {
            platform::scoped_lock inside(guard_);
            what = next_need();
        }
        return what != need::nothing && !meet(what);
    };
    platform::guarded([&] { // the watch tries again
        while (meets_a_need()) {
        }
    });
    run_begins(); // threads that are too many now leave when the watch looks
}

void task_threads::submit(const std::shared_ptr<task_ifc>& task) {
    need what = need::nothing;
    {
        platform::scoped_lock inside(guard_);
        if (has_ended())
            throw exceptions::fatal("Tasks module already destroyed");
        pending_.push(task);
        what = next_need();
    }
    try {
        // The threads that there are come to the task, or else the watch sees them blocked.
        if (const auto refusal = meet(what); refusal && thread_count() == 0)
            std::rethrow_exception(refusal);
        if (watch_is_slow_.load(std::memory_order_relaxed))
            hurry_watch();
    } catch (...) {
        if (withdraw(*task)) // otherwise another thread has taken it
            throw;
    }
}

// What brings the next pending task forward. Counts it as done.
task_threads::need task_threads::next_need() {
    if (pending_.empty() || has_ended())
        return need::nothing;
    if (somebody_lingers_ && pending_.size() == 1) {
        task_has_come_.store(true, std::memory_order_relaxed);
        return need::nothing;
    }
    if (are_in_hand())
        return need::nothing;
    need what = need::turn;
    if (turns_ == threads_) {
        if (threads_ >= limits_.cores + waiting_ + added_ || threads_ >= limits_.most_threads)
            return need::nothing;
        ++threads_;
        what = need::thread;
    }
    give_turn();
    return what;
}

void task_threads::give_turn() {
    ++turns_;
    most_turns_ = std::max(most_turns_, turns_);
}

// Whether the threads that run will be through with what is pending before another
// one could be woken. Should a long task be among it, the watch sees the others wait.
bool task_threads::are_in_hand() const {
    return short_runs_ >= short_runs_to_rely_on && turns_ > waiting_ &&
           pending_.size() <= short_backlog;
}

// Returns why a thread that was needed could not be had, else null; the watch tries again.
// Throws when memory is too short to give a turn.
std::exception_ptr task_threads::meet(need what) {
    if (what == need::nothing)
        return nullptr;
    if (what == need::thread)
        if (auto refusal = start_thread())
            return refusal;
    try {
        asio::post(workers_, [this] { take_turn(); });
    } catch (...) {
        platform::scoped_lock inside(guard_);
        --turns_;
        throw;
    }
    return nullptr;
}

std::exception_ptr task_threads::start_thread() noexcept {
    platform::scoped_lock inside_list(threads_guard_);
    // The analysis does not see that the lambda is called here.
    auto refusal = platform::guarded([&]() ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        if (no_more_threads_)
            throw exceptions::fatal("Tasks module already destroyed");
        workers_list_.emplace_back([self = shared_from_this()] { worker(*self).work(); });
    });
    if (refusal) {
        platform::scoped_lock inside(guard_);
        --threads_;
        --turns_;
    }
    return refusal;
}

void task_threads::take_turn() {
    worker& self = *worker::current();
    self.inside_turn = true;
    std::optional<std::chrono::steady_clock::duration> last_run;
    while (auto task = take_task(last_run)) {
        run_begins();
        const auto began = std::chrono::steady_clock::now();
        run_pending(std::move(task));
        last_run = std::chrono::steady_clock::now() - began;
    }
    self.inside_turn = false;
}

// Null ends the turn.
std::shared_ptr<task_ifc>
task_threads::take_task(std::optional<std::chrono::steady_clock::duration> last_run) {
    {
        platform::scoped_lock inside(guard_);
        if (last_run)
            short_runs_ = *last_run < short_run ? short_runs_ + 1 : 0;
        if (auto task = take_first())
            return task;
        // No lingering while other threads run tasks: they will take the next one, and
        // need the cores.
        if (somebody_lingers_ || has_ended() || turns_ * 2 > limits_.cores) {
            --turns_;
            return nullptr;
        }
        somebody_lingers_ = true;
        task_has_come_.store(false, std::memory_order_relaxed);
    }
    linger();
    platform::scoped_lock inside(guard_);
    somebody_lingers_ = false;
    auto task = take_first();
    turns_ -= task ? 0 : 1;
    return task;
}

std::shared_ptr<task_ifc> task_threads::take_first() {
    auto task = pending_.take_first();
    taken_ += task ? 1 : 0;
    return task;
}

void task_threads::linger() noexcept {
    for (int i = 0; i < lingering_spins && !task_has_come_.load(std::memory_order_relaxed); ++i)
        platform::pause_processor();
}

// A body has ended its thread. Somebody has to take its place.
void task_threads::unwound(bool inside_turn) noexcept {
    need what = need::nothing;
    {
        platform::scoped_lock inside(guard_);
        --threads_;
        turns_ -= inside_turn ? 1 : 0;
        what = next_need();
    }
    const platform::no_cancellation to_the_end;
    platform::guarded([&] { static_cast<void>(meet(what)); }); // the watch tries again
}

std::shared_ptr<task_ifc> task_threads::withdraw(task_ifc& task) {
    platform::scoped_lock inside(guard_);
    return pending_.take_out(task);
}

void task_threads::wait_begins() noexcept {
    need what = need::nothing;
    {
        platform::scoped_lock inside(guard_);
        ++waiting_;
        what = next_need();
    }
    platform::guarded([&] { static_cast<void>(meet(what)); }); // the watch tries again
}

void task_threads::wait_ends() noexcept {
    platform::scoped_lock inside(guard_);
    --waiting_;
}

std::vector<std::shared_ptr<task_ifc>> task_threads::stop_taking() {
    std::vector<std::shared_ptr<task_ifc>> rest;
    platform::scoped_lock inside(guard_);
    rest.reserve(pending_.size()); // nothing fails from here on
    ended_.store(true, std::memory_order_release);
    while (auto task = pending_.take_first())
        rest.push_back(std::move(task));
    return rest;
}

namespace {

// A thread that ends the pool from inside a task cannot wait for itself.
void join_or_leave(std::thread& thread) {
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else if (thread.joinable())
        thread.join();
}

} // namespace

// Called by a worker at its end. Returns the thread that left before it, which has to be
// joined: the destructors of that thread's own objects may still be running.
std::thread task_threads::leave_the_list() {
    platform::scoped_lock inside(threads_guard_);
    const auto own = std::ranges::find(workers_list_, std::this_thread::get_id(),
                                       [](const std::thread& t) { return t.get_id(); });
    if (own == workers_list_.end())
        return {}; // the end waits for it
    auto before = std::exchange(last_that_left_, std::move(*own));
    workers_list_.erase(own);
    return before;
}

void task_threads::join() {
    std::list<std::thread> threads;
    std::thread left;
    {
        platform::scoped_lock inside(threads_guard_);
        no_more_threads_ = true;
        threads.swap(workers_list_);
        left.swap(last_that_left_);
    }
    workers_.stop();
    for (auto& thread : threads)
        join_or_leave(thread);
    join_or_leave(left);
    timers_.stop();
    join_or_leave(timer_thread_);
}

std::size_t task_threads::thread_count() const {
    platform::scoped_lock inside(guard_);
    return threads_;
}

void task_threads::send_threads_away(std::size_t count) noexcept {
    const auto failure = platform::guarded([&] {
        for (; count > 0; --count)
            asio::post(workers_, [] { worker::current()->send_away(); });
    });
    if (!failure)
        return;
    platform::scoped_lock inside(guard_); // the others stay, for now
    threads_ += count;
}

} // namespace zel::tasklib
