// Pending tasks in the order of their arrival, any of which can be taken out again.
#pragma once

#include "generic/tasklib/src/tasks/task_ring.h"

#include <platform/critical_section.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace zel::tasklib {

/// Any thread. A task knows its row and its number there, so taking it out costs no search; it
/// leaves a gap behind, which holds nothing. Gaps are closed before they outnumber the
/// tasks by far.
class task_row {
public:
    static constexpr std::size_t endless = std::numeric_limits<std::size_t>::max();
    /// The most tasks that go from one row to another at once.
    static constexpr std::size_t batch = 32;

    enum class outcome { stored, full, closed };

    /// The rows of a pool have different numbers. Memory for a limited row is reserved here.
    /// Throws std::bad_alloc.
    task_row(std::uint16_t number, std::size_t most);

    /// A task that is in the row already keeps its place. Throws std::bad_alloc when the row is
    /// endless, and then the task is not in it.
    outcome push(const std::shared_ptr<task_ifc>& task);

    /// The first task; null when there is none, or the row is closed.
    std::shared_ptr<task_ifc> take();
    /// Takes the older half of what another row has, or a batch: the first is returned, and
    /// the others come behind those of this row, which is a limited one.
    std::shared_ptr<task_ifc> take_half_of(task_row& other) noexcept;

    /// The task, or null when no row has it. Nothing when it has gone to another row.
    std::optional<std::shared_ptr<task_ifc>> take_out(task_ifc& task);
    bool has(task_ifc& task);

    /// From now on nothing comes in, and only `take_rest` takes something out.
    void close() noexcept;
    std::shared_ptr<task_ifc> take_rest();

    /// How many tasks there are, at a glance. Sequentially consistent with `push`: who pushes
    /// and then sees nobody asleep is seen by who falls asleep and then looks here.
    std::size_t size() const noexcept { return size_.load(std::memory_order_seq_cst); }

    std::uint16_t number() const noexcept { return number_; }
    /// With the gaps; for tests.
    std::size_t length();

    /// The number of the row that has, or had, the task; 0 for one that was in none.
    static std::uint16_t number_of_row(task_ifc& task) noexcept;
    static bool was_in_none(task_ifc& task) noexcept;

private:
    std::shared_ptr<task_ifc> pop_front() ZEL_REQUIRES(guard_);
    void append(std::shared_ptr<task_ifc> task) ZEL_REQUIRES(guard_);
    void write_place(task_ifc& task, std::size_t index) const ZEL_REQUIRES(guard_);
    std::shared_ptr<task_ifc>* find(task_ifc& task) ZEL_REQUIRES(guard_);

    // Guards the tasks, and which place is theirs; held for a few steps. Of two rows the one
    // with the lower number is locked first.
    platform::plain_lock guard_;
    const std::uint16_t number_;
    bool closed_ ZEL_GUARDED_BY(guard_) = false;
    // Without the gaps. Written under the guard.
    std::atomic<std::size_t> size_{0};
    task_ring tasks_ ZEL_GUARDED_BY(guard_);
    std::uint64_t first_ ZEL_GUARDED_BY(guard_) = 1; // the number of the first task
    const std::size_t most_;
};

} // namespace zel::tasklib
