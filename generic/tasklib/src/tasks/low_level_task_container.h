// The tasks of one owner, and waiting for them.
#pragma once

#include "generic/tasklib/src/tasks/deadline.h"

#include <tasklib/cancellation_companions.h>
#include <tasklib/placed_task.h>

#include <platform/critical_section.h>

#include <string>
#include <vector>

namespace zel::tasklib {

class low_level_task_container final
    : public task_container_low_level_ifc,
      public task_holder_ifc,
      public std::enable_shared_from_this<low_level_task_container> {
public:
    explicit low_level_task_container(std::string name) : name_(std::move(name)) {}
    /// Waits for tasks that are just leaving.
    ~low_level_task_container() override;

    void add(const std::shared_ptr<task_ifc>& task) override;
    void remove(const std::shared_ptr<task_ifc>& task) override;
    void end() override;
    bool wait(threading::universal_timeout timeout, std::int32_t mode) override;

    std::shared_ptr<task_container_low_level_ifc> container() noexcept override {
        return weak_from_this().lock();
    }
    void let_go_at_end(task_ifc& task, ended_state_ifc& its_state) override;

private:
    bool wait_for_tasks(const deadline& until, std::int32_t mode);
    bool wait_for_ended_states(const deadline& until, std::int32_t mode);
    bool holds_nothing();
    std::shared_ptr<task_ifc> first_to_wait_for(wait_exclusion_ifc* exclusion,
                                                const std::vector<const task_ifc*>& own);
    bool report_held_tasks();
    std::shared_ptr<ended_state_ifc> last_ended_state();
    std::shared_ptr<InterfaceBase> take_state_that_tells_of_end();
    void drop_from_held(task_ifc& task);
    std::shared_ptr<task_ifc> held(std::size_t place) const ZEL_REQUIRES(guard_) {
        return std::static_pointer_cast<task_ifc>(row_[place]);
    }
    task_ifc& known(std::size_t place) const ZEL_REQUIRES(guard_) {
        return static_cast<task_ifc&>(*row_[place]);
    }
    std::shared_ptr<ended_state_ifc> state_of_leaving_task();
    bool is_forgotten_by(task_ifc& task) ZEL_REQUIRES(guard_);
    std::shared_ptr<task_ifc> take_out(task_ifc& task) ZEL_REQUIRES(guard_);

    // Guards all below. Never held while a task is canceled or waited for.
    platform::plain_lock guard_;
    const std::string name_; // shown by debuggers
    bool ended_ ZEL_GUARDED_BY(guard_) = false;
    // First the tasks that are held, in no order: the last one moves into the gap that one
    // leaves. Behind them the ended states, which keep their tasks, of those that have left by
    // `remove` and have not told yet that they have ended. In one row, so that a task needs no
    // memory to leave.
    std::vector<std::shared_ptr<InterfaceBase>> row_ ZEL_GUARDED_BY(guard_);
    std::size_t held_ ZEL_GUARDED_BY(guard_) = 0;
};

} // namespace zel::tasklib
