// A thread of the pool, and how it goes through its tasks.
#pragma once

#include "libraries/tasks_core/task_threads.h"

#include <platform/announced_wait.h>

#include <chrono>

namespace zel::tasklib {

/// On the stack of the thread, as long as that lives.
class worker final : public platform::thread_lender {
public:
    worker(task_threads& threads, thread_seat& seat) noexcept : threads_(threads), seat_(seat) {
        current_ = this;
        platform::set_thread_lender(this);
    }
    ~worker();
    worker(const worker&) = delete;
    worker& operator=(const worker&) = delete;

    /// Of the calling thread; null for a thread that is not one of this pool.
    static thread_seat* seat_in(const task_threads& threads) noexcept {
        return current_ && &current_->threads_ == &threads ? &current_->seat_ : nullptr;
    }

    void wait_begins() noexcept override { threads_.wait_begins(seat_); }
    void wait_ends() noexcept override { threads_.wait_ends(); }

    /// Until the thread has to leave.
    void work();

private:
    void count_task() noexcept;
    std::shared_ptr<task_ifc> next_task();
    std::shared_ptr<task_ifc> search() noexcept;
    void judge_runs() noexcept;

    // Initial-exec: one load, no call, and nothing to destroy.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local worker* current_;

    task_threads& threads_;
    thread_seat& seat_;
    // Since the last look at the clock, and how many in a row have been short.
    std::uint32_t runs_ = 0;
    std::uint32_t short_runs_ = 0;
    std::chrono::steady_clock::time_point looked_;
    bool unwound_ = true; // unless the work is left in the regular way
};

} // namespace zel::tasklib
