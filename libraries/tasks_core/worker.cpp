#include "libraries/tasks_core/worker.h"

#include "libraries/tasks_core/running_task.h"

#include <platform/cancellation.h>
#include <platform/impersonation_watch.h>

namespace zel::tasklib {

namespace {

// About what it takes to wake a thread.
constexpr std::chrono::microseconds short_run{10};
constexpr std::uint32_t short_runs_to_rely_on = 32;

// After so many tasks a thread looks beyond its own row. Otherwise tasks that keep submitting
// others on it would let those of all other rows wait without end.
constexpr std::uint64_t tasks_between_looks = 32;

} // namespace

constinit thread_local worker* worker::current_ = nullptr;

worker::~worker() {
    platform::set_thread_lender(nullptr);
    current_ = nullptr;
    const platform::no_cancellation to_the_end;
    threads_.stand_up(seat_, unwound_);
    if (auto left_before = threads_.leave_the_list(); left_before.joinable())
        left_before.join();
}

void worker::work() {
    const platform::own_code_only between_the_tasks;
    for (auto task = search(); task; task = next_task()) {
        count_task();
        threads_.run_begins();
        run_pending(std::move(task));
    }
    unwound_ = false;
}

void worker::count_task() noexcept {
    ++runs_;
    seat_.taken.store(seat_.taken.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

std::shared_ptr<task_ifc> worker::next_task() {
    auto& seats = threads_.seats_;
    if (const auto taken = seat_.taken.load(std::memory_order_relaxed);
        taken % tasks_between_looks == 0) {
        judge_runs();
        if (auto task = seats.take_from_next(taken / tasks_between_looks))
            return task;
    }
    if (auto task = seat_.row.take())
        return task;
    judge_runs();
    if (auto task = seats.take_for(seat_)) {
        threads_.bring_thread(&seat_);
        return task;
    }
    threads_.begin_search();
    return search();
}

// The time of the next runs is counted from the end of the search.
std::shared_ptr<task_ifc> worker::search() noexcept {
    auto task = threads_.search(seat_);
    looked_ = std::chrono::steady_clock::now();
    return task;
}

// One look at the clock for many runs: it takes as long as a part of a task.
void worker::judge_runs() noexcept {
    if (runs_ == 0) // the last look was just now
        return;
    const auto now = std::chrono::steady_clock::now();
    const bool are_short = now - looked_ < short_run * runs_;
    short_runs_ = are_short ? short_runs_ + runs_ : 0;
    if (short_runs_ >= short_runs_to_rely_on)
        threads_.expect_short_runs(true);
    else if (!are_short)
        threads_.expect_short_runs(false);
    runs_ = 0;
    looked_ = now;
}

} // namespace zel::tasklib
