// The neighbours that task execution stands on, loaded on first use.
#pragma once

#include <tasklib/performance_logger.h>
#include <tasklib/task_processor.h>
#include <tasklib/task_scheduler.h>
#include <tasklib/tasks_core_module.h>

#include <cstddef>
#include <memory>

namespace zel::tasklib {

/// Throws exceptions::fatal when the task library has ended, exceptions::error or
/// WrongIfcVersion when it cannot be had.
std::shared_ptr<tasks_core_module> get_tasks_module();

/// The same with the object's version checked.
std::shared_ptr<task_processor_ifc> get_task_processor();
std::shared_ptr<task_scheduler_ifc> get_task_scheduler();

/// As `get_task_processor()->submit(task, 0)`, for a task of this library: its ended state keeps
/// the task library, so that less has to be asked.
void submit_to_library(const std::shared_ptr<task_ifc>& task);

/// The ended state of a task, in memory of the task where the library offers that.
class own_ended_state {
public:
    /// Throws what get_tasks_module throws.
    own_ended_state();
    ~own_ended_state();
    own_ended_state(const own_ended_state&) = delete;
    own_ended_state& operator=(const own_ended_state&) = delete;

    ended_state_ifc& operator*() const noexcept { return *state_; }
    ended_state_ifc* operator->() const noexcept { return state_; }
    /// For others, who keep the task as long where the state is part of it.
    std::shared_ptr<ended_state_ifc> share(const std::shared_ptr<const void>& task) const;

private:
    using separate = std::shared_ptr<ended_state_ifc>;

    bool is_separate() const noexcept {
        return static_cast<const void*>(state_) != static_cast<const void*>(room_);
    }

    // Holds the state, or a reference to one that stands elsewhere.
    alignas(separate) std::byte room_[24];
    ended_state_ifc* state_; // at the beginning of the room, or not in it
};

/// The calling thread's cancellation object; null outside of tasks. The first one asks less,
/// because the state of a task keeps the library.
std::shared_ptr<cancellation_ifc> cancellation_around(const own_ended_state& new_task);
std::shared_ptr<cancellation_ifc> get_this_taskcancellation();

/// Throws exceptions::fatal when the library has ended.
std::shared_ptr<performance_logger_storage_module> get_performance_logger_storage_module();

/// Whether runs are measured; false also where the library is not to be had, which
/// is logged once. Costs two loads.
bool is_measuring() noexcept;

} // namespace zel::tasklib
