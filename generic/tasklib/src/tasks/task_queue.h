// A queue of tasks and the threads that run them.
#pragma once

#include "generic/tasklib/src/tasks/task.h"

#include <tasklib/task_container.h>
#include <tasklib/task_processor.h>
#include <tasklib/task_queue.h>

#include <platform/event.h>

#include <atomic>
#include <deque>

namespace zel::tasklib {

/// The task that lends its thread to a queue.
inline constexpr const char* queue_runner_name = "@task queue";

/// Destroying it releases stored tasks without running them.
class task_queue final : public task_queue_ifc, public task_queue_room_ifc {
public:
    /// `runner_limit` threads at most run its tasks at once.
    explicit task_queue(std::uint32_t runner_limit) noexcept : runner_limit_(runner_limit) {}

    bool push(const std::shared_ptr<task_ifc>& task) override;
    void run_all_stored_tasks(const std::shared_ptr<task_processor_ifc>& processor) override;
    bool needs_runner(const void* owner) override;
    void runner_submitted(const void* owner) noexcept override;
    void runner_came(const void* owner) noexcept override;

    versioned_ifc* query_interface(const interface_id& wanted) override;
    std::size_t length() const noexcept override { return count_.load(std::memory_order_relaxed); }
    push_outcome try_push(const std::shared_ptr<task_ifc>& task) override;

private:
    class runner;

    static constexpr std::size_t roomy = 1024; // tasks; beyond that producers are slowed

    void wait_for_room();
    template <class Condition>
    bool comes_soon(const Condition& holds) const noexcept;
    bool store(const std::shared_ptr<task_ifc>& task) ZEL_REQUIRES(guard_);
    bool enter_runners(runner& entering) noexcept;
    void leave_runners(const runner* only) noexcept ZEL_REQUIRES(guard_);
    std::shared_ptr<task_ifc> take_next();

    const std::string name_; // shown by debuggers
    platform::event not_full_{platform::reset_mode::manual, true};
    // Guards all below. Never held while a task runs or a producer waits.
    platform::plain_lock guard_;
    std::deque<std::shared_ptr<task_ifc>> stored_ ZEL_GUARDED_BY(guard_);
    // The number of stored tasks. Written under the guard; relaxed for those who only
    // look, because it may have changed again anyway.
    std::atomic<std::size_t> count_{0};
    // Those that run stored tasks now, linked on their own stacks: a runner that could not
    // be noted down for want of memory would leave the tasks behind.
    runner* runners_ ZEL_GUARDED_BY(guard_) = nullptr;
    std::uint32_t runner_count_ ZEL_GUARDED_BY(guard_) = 0;
    // Runners of the first owner that have been submitted and have not begun; below zero
    // when one began first. It takes a while to wake a thread for one, in which each push
    // would submit another. Others than the first owner do without.
    const void* expecting_owner_ ZEL_GUARDED_BY(guard_) = nullptr;
    std::ptrdiff_t expected_runners_ ZEL_GUARDED_BY(guard_) = 0;
    const std::uint32_t runner_limit_;
};

/// Makes the task that runs what the queue stores and submits it. When a body
/// unwinds the thread it runs on, another one is made to go on. The container may
/// be null.
task<void> submit_run_queue_tasks(const std::shared_ptr<task_container_ifc>& container,
                                  const std::shared_ptr<task_processor_ifc>& processor,
                                  const std::shared_ptr<task_queue_ifc>& queue);

/// Called when `push` has returned true. The same, unless a runner of the container has
/// been submitted already and will come to all that is stored.
void ensure_runner(const std::shared_ptr<task_container_ifc>& container,
                   const std::shared_ptr<task_processor_ifc>& processor,
                   const std::shared_ptr<task_queue_ifc>& queue);

} // namespace zel::tasklib
