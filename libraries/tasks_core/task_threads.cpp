#include "libraries/tasks_core/task_threads.h"

#include "framework/exceptions/exceptions.h"
#include "libraries/tasks_core/worker.h"

#include <platform/diagnostics.h>
#include <platform/wait_on_address.h>

#include <algorithm>

namespace zel::tasklib {

namespace {

// Some ten microseconds. To wake a sleeping processor takes as long or longer, in a
// virtual machine above all.
constexpr std::size_t rows_looked_at_while_lingering = 2000;

constexpr std::size_t short_backlog = 8; // tasks

} // namespace

task_threads::task_threads(const task_thread_limits& limits)
    : timers_(1), timers_stay_(timers_.get_executor()), watch_timer_(timers_), limits_(limits) {
    platform::scoped_lock inside(guard_);
    publish_readiness();
}

task_threads::~task_threads() = default;

void task_threads::start_timer_thread() {
    timer_thread_ = std::thread([this] { timers_.run(); });
}

void task_threads::set_limits(const task_thread_limits& limits) noexcept {
    platform::scoped_lock inside(guard_);
    limits_ = limits;
    publish_readiness();
}

void task_threads::follow_limits() {
    if (are_tasks_left())
        call_thread(); // each one that finds a task calls the next
    run_begins();      // threads that are too many now leave when the watch looks
}

void task_threads::submit(const std::shared_ptr<task_ifc>& task) {
    auto* const own = worker::seat_in(*this);
    // A task that is in some row already keeps its place.
    if (!seats_.have(*task)) {
        auto outcome = own ? own->row.push(task) : task_row::outcome::full;
        if (outcome == task_row::outcome::full)
            outcome = seats_.common_row().push(task);
        if (outcome == task_row::outcome::closed)
            throw exceptions::fatal("Tasks module already destroyed");
    }
    try {
        // The threads that there are come to the task, or else the watch sees them blocked.
        if (const auto refusal = bring_thread(own); refusal && thread_count() == 0)
            std::rethrow_exception(refusal);
        if (watch_is_slow_.load(std::memory_order_relaxed))
            hurry_watch();
    } catch (...) {
        if (withdraw(*task)) // otherwise another thread has taken it
            throw;
    }
}

void task_threads::publish_readiness() noexcept {
    auto now = readiness::none_needed;
    const bool can_come =
        !asleep_.empty() || census_.may_add_one(limits_.cores, limits_.most_threads);
    if (can_come && census_.searching() == 0 && !has_ended())
        now = census_.running() > 0 ? readiness::unless_short : readiness::nobody_runs;
    if (readiness_.load(std::memory_order_relaxed) != now)
        readiness_.store(now, std::memory_order_seq_cst);
}

void task_threads::expect_short_runs(bool are_short) noexcept {
    if (runs_are_short_.load(std::memory_order_relaxed) != are_short)
        runs_are_short_.store(are_short, std::memory_order_relaxed);
}

// Called when there may be a task that nobody has come for. Returns why a thread that was
// needed could not be had, else null; the watch tries again.
std::exception_ptr task_threads::bring_thread(const thread_seat* own) noexcept {
    const auto now = readiness_.load(std::memory_order_seq_cst);
    if (now == readiness::none_needed)
        return nullptr;
    // The threads that run will be through with a few short tasks before another one could
    // be woken. Should a long task be among them, the watch sees the others wait.
    if (now == readiness::unless_short && runs_are_short_.load(std::memory_order_relaxed) &&
        seats_.common_row().size() + (own ? own->row.size() : 0) <= short_backlog)
        return nullptr;
    return call_thread();
}

std::exception_ptr task_threads::call_thread() noexcept {
    thread_seat* sleeper = nullptr;
    {
        platform::scoped_lock inside(guard_);
        if (census_.searching() > 0 || has_ended())
            return nullptr;
        if ((sleeper = asleep_.take_last())) {
            census_.thread_wakes();
            sleeper->called.store(thread_seat::wake, std::memory_order_release);
        } else if (census_.may_add_one(limits_.cores, limits_.most_threads)) {
            census_.thread_starts();
        } else {
            return nullptr;
        }
        publish_readiness();
    }
    if (!sleeper)
        return start_thread();
    platform::wake_one(sleeper->called);
    return nullptr;
}

// It has been counted.
std::exception_ptr task_threads::start_thread() noexcept {
    platform::scoped_lock inside_list(threads_guard_);
    thread_seat* seat = nullptr;
    // The analysis does not see that the lambda is called here.
    auto refusal = platform::guarded([&]() ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        if (no_more_threads_)
            throw exceptions::fatal("Tasks module already destroyed");
        seat = &take_seat();
        workers_list_.emplace_back(
            [self = shared_from_this(), seat] { worker(*self, *seat).work(); });
    });
    if (refusal) {
        platform::scoped_lock inside(guard_);
        if (seat)
            free_seats_.add(*seat);
        census_.thread_does_not_start();
        publish_readiness();
    }
    return refusal;
}

thread_seat& task_threads::take_seat() {
    {
        platform::scoped_lock inside(guard_);
        if (auto* const free = free_seats_.take_first())
            return *free;
    }
    auto* const made = seats_.make();
    if (!made)
        throw exceptions::error("Too many task threads.");
    return *made;
}

// Called by a worker that counts as searching. Null when the thread has to leave.
std::shared_ptr<task_ifc> task_threads::search(thread_seat& own) noexcept {
    do {
        std::size_t looks = 0, rows = 1;
        do {
            if (are_tasks_left()) {
                // Ends before a task is taken: who submits one meanwhile no longer counts on
                // this thread.
                end_search();
                auto task = own.row.take();
                if (!task)
                    task = seats_.take_for(own);
                if (task) {
                    if (are_tasks_left())
                        bring_thread(&own);
                    return task;
                }
                begin_search();
            }
            if (looks == 0) {
                rows = 1 + seats_.count();
                looks = may_linger() ? rows_looked_at_while_lingering : 1;
            }
            platform::pause_processor();
            looks -= std::min(looks, rows);
        } while (looks > 0);
    } while (sleep(own));
    return nullptr;
}

void task_threads::begin_search() noexcept {
    platform::scoped_lock inside(guard_);
    census_.search_begins();
    publish_readiness();
}

void task_threads::end_search() noexcept {
    platform::scoped_lock inside(guard_);
    census_.search_ends();
    publish_readiness();
}

bool task_threads::may_linger() const noexcept {
    platform::scoped_lock inside(guard_);
    return census_.may_linger(limits_.cores) && !sends_all_away_;
}

// False when the thread has to leave.
bool task_threads::sleep(thread_seat& own) noexcept {
    {
        platform::scoped_lock inside(guard_);
        census_.thread_falls_asleep();
        if (sends_all_away_) {
            census_.sleeping_threads_end(1);
            return false;
        }
        own.called.store(thread_seat::none, std::memory_order_relaxed);
        asleep_.add(own);
        publish_readiness();
    }
    // Who has submitted a task meanwhile may have seen this thread search.
    if (are_tasks_left()) {
        platform::scoped_lock inside(guard_);
        if (own.called.load(std::memory_order_relaxed) == thread_seat::none) {
            asleep_.remove(own);
            census_.thread_wakes();
            publish_readiness();
            return true;
        }
    }
    auto called = own.called.load(std::memory_order_acquire);
    for (; called == thread_seat::none; called = own.called.load(std::memory_order_acquire))
        platform::wait_on_address(own.called, thread_seat::none, std::nullopt);
    return called == thread_seat::wake;
}

// The thread of a worker ends, perhaps unwound out of a task. Somebody has to take its place.
void task_threads::stand_up(thread_seat& seat, bool unwound) noexcept {
    {
        platform::scoped_lock inside(guard_);
        if (unwound)
            census_.running_thread_ends();
        free_seats_.add(seat);
        publish_readiness();
    }
    if (unwound && are_tasks_left())
        bring_thread(nullptr); // the watch tries again
}

void task_threads::wait_begins(const thread_seat& own) noexcept {
    {
        platform::scoped_lock inside(guard_);
        census_.wait_begins();
        publish_readiness();
    }
    if (are_tasks_left())
        bring_thread(&own); // the watch tries again
}

void task_threads::wait_ends() noexcept {
    platform::scoped_lock inside(guard_);
    census_.wait_ends();
    publish_readiness();
}

// Under the guard of the list, so that no seat is made that would stay open.
void task_threads::stop_taking() noexcept {
    platform::scoped_lock inside(threads_guard_);
    no_more_threads_ = true;
    ended_.store(true, std::memory_order_release);
    seats_.close();
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
        threads.swap(workers_list_);
        left.swap(last_that_left_);
    }
    {
        platform::scoped_lock inside(guard_);
        sends_all_away_ = true;
    }
    send_threads_away(threads.size());
    for (auto& thread : threads)
        join_or_leave(thread);
    join_or_leave(left);
    timers_.stop();
    join_or_leave(timer_thread_);
}

std::size_t task_threads::thread_count() const {
    platform::scoped_lock inside(guard_);
    return census_.threads();
}

// Those that have slept for the longest time, and no more than are asleep.
void task_threads::send_threads_away(std::size_t count) noexcept {
    for (; count > 0; --count) {
        thread_seat* sleeper = nullptr;
        {
            platform::scoped_lock inside(guard_);
            sleeper = asleep_.take_first();
            if (!sleeper)
                return;
            census_.sleeping_threads_end(1);
            sleeper->called.store(thread_seat::leave, std::memory_order_release);
            publish_readiness();
        }
        platform::wake_one(sleeper->called);
    }
}

} // namespace zel::tasklib
