// What a task may offer to the places that keep it besides task_ifc, so that it needs less of
// what other threads have to hear of: asked for with
// `query<placed_task_ifc>(task.cancellation())`.
#pragma once

#include <tasklib/ended_state.h>
#include <tasklib/task_container.h>
#include <tasklib/task_ifc.h>

#include <memory>

namespace zel::tasklib {

/// A pool as the tasks in it see it: there as long as its library is loaded, also when the
/// pool has gone.
class ZEL_EXPORT task_pool_ifc {
public:
    /// The place from which a task may be withdrawn; null when it has gone.
    virtual std::shared_ptr<task_submitter_ifc> place() noexcept = 0;

protected:
    ~task_pool_ifc() = default;
};

/// A container as the tasks see it that it holds, without a reference of theirs: before it goes
/// it has them forget it.
class ZEL_EXPORT task_holder_ifc {
public:
    /// Null when it is just going.
    virtual std::shared_ptr<task_container_low_level_ifc> container() noexcept = 0;
    /// Lets go of a task that has ended, and has its state tell of the end in the same step:
    /// who finds one finds the other. The caller keeps the task.
    virtual void let_go_at_end(task_ifc& task, ended_state_ifc& its_state) = 0;

protected:
    ~task_holder_ifc() = default;
};

/// Any thread may call any operation.
class ZEL_EXPORT placed_task_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"5C3C9E0B-44C1-4E37-8C57-0C9B5A1D7B61"};

    /// Instead of `set_submitter`. False when some place has the task already; then
    /// `set_submitter` knows what to do.
    virtual bool enter_pool(task_pool_ifc& pool) noexcept = 0;
    /// Instead of `try_claim` and `take_submitter`. True for the caller who has to call
    /// `run_claimed_in_pool`.
    virtual bool claim_in_pool() noexcept = 0;
    /// Instead of `run`. The caller keeps the task until it returns.
    virtual void run_claimed_in_pool() = 0;

    /// The container holds the task from now on. Does nothing when another one does.
    virtual void enter_holder(task_holder_ifc& holder) noexcept = 0;
    /// The task forgets the container. False when the task is just ending and may still come to
    /// the container, which has to stay until the ended state tells of the end.
    virtual bool forget_holder(task_holder_ifc& holder) noexcept = 0;
};

} // namespace zel::tasklib
