// Where the threads of a pool sit: each has a row of tasks of its own, and a place to sleep.
#pragma once

#include "libraries/tasks_core/task_row.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

namespace zel::tasklib {

/// Stays until the pool goes. The next thread takes it, with what was left in the row.
/// Aligned, so that threads do not disturb each other's rows.
struct alignas(64) thread_seat {
    static constexpr std::size_t row_limit = 128; // tasks; more go into the row of all

    explicit thread_seat(std::uint16_t number) : row(number, row_limit) {}

    task_row row;
    // How many tasks the threads of this seat have taken. Relaxed: only its thread writes it,
    // and for the watch an old value will do.
    std::atomic<std::uint64_t> taken{0};

    enum call : std::uint32_t { none, wake, leave };
    // What a sleeping thread waits for. Released by who calls it, acquired by the thread.
    std::atomic<std::uint32_t> called{none};

    // In the list of those asleep, or of free seats; guarded by the owner of the list.
    thread_seat* next = nullptr;
    thread_seat* previous = nullptr;
};

/// Not synchronised.
class seat_list {
public:
    bool empty() const noexcept { return !last_; }
    void add(thread_seat& seat) noexcept;
    void remove(thread_seat& seat) noexcept;
    /// Null when the list is empty.
    thread_seat* take_first() noexcept { return take(first_); }
    thread_seat* take_last() noexcept { return take(last_); }

private:
    thread_seat* take(thread_seat* seat) noexcept;

    thread_seat* first_ = nullptr;
    thread_seat* last_ = nullptr;
};

/// The row for tasks that come from outside, and all seats that were ever needed at once.
class thread_seats {
public:
    static constexpr std::size_t most = 4096;

    task_row& common_row() noexcept { return common_; }

    /// Null when there are too many. Throws std::bad_alloc. By one thread at a time.
    thread_seat* make();

    std::size_t count() const noexcept { return count_.load(std::memory_order_seq_cst); }
    /// Whether some row has a task.
    bool have_tasks() const noexcept;
    std::uint64_t taken() const noexcept;

    /// A task of the row of all or else of another thread's row, with more behind it for the
    /// seat's own row. Null when there was none.
    std::shared_ptr<task_ifc> take_for(thread_seat& seat) noexcept;
    /// A single task of a row that others may have forgotten: each time another one.
    std::shared_ptr<task_ifc> take_from_next(std::size_t turn);

    /// Null when no row has the task.
    std::shared_ptr<task_ifc> take_out(task_ifc& task);
    bool have(task_ifc& task);

    /// See task_row. No seat may be made meanwhile or afterwards.
    void close() noexcept;
    std::shared_ptr<task_ifc> take_rest();

private:
    task_row* row_of(task_ifc& task) noexcept;

    task_row common_{0, task_row::endless};
    std::array<std::unique_ptr<thread_seat>, most> seats_;
    // Sequentially consistent, like the sizes of the rows: who looks for tasks does not miss
    // the row of a thread that it was seen by.
    std::atomic<std::size_t> count_{0};
};

} // namespace zel::tasklib
