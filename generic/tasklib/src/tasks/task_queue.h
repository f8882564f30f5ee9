// A queue of tasks and the threads that run them.
#pragma once

#include "generic/tasklib/src/tasks/task.h"
#include "generic/tasklib/src/tasks/task_ring.h"

#include <tasklib/task_container.h>
#include <tasklib/task_processor.h>
#include <tasklib/task_queue.h>

#include <platform/event.h>

#include <atomic>

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
    std::size_t length() const noexcept override;
    push_outcome try_push(const std::shared_ptr<task_ifc>& task) override;

private:
    class runner;

    static constexpr std::size_t roomy = 1024; // tasks; beyond that producers are slowed
    static constexpr std::size_t comfortable = roomy - 64;

    void wait_for_room();
    bool is_crowded() noexcept ZEL_REQUIRES(guard_);
    bool store(const std::shared_ptr<task_ifc>& task) ZEL_REQUIRES(guard_);
    bool enter_runners(runner& entering) noexcept;
    void leave_runners(const runner* only) noexcept ZEL_REQUIRES(guard_);
    std::shared_ptr<task_ifc> take_next();
    std::shared_ptr<task_ifc> take_alone();
    std::shared_ptr<task_ifc> take_among_others();
    bool leaves_empty_queue() noexcept ZEL_REQUIRES(guard_);
    std::shared_ptr<task_ifc> take_counted(task_ring& tasks) noexcept;
    void tell_of_room() noexcept;

    const std::string name_;                                        // shown by debuggers
    platform::event not_full_{platform::reset_mode::manual, false}; // has a say when awaited
    const std::uint32_t runner_limit_;

    // What producers write. The guard guards all that says so, and is never held while a task
    // runs or a producer waits.
    alignas(64) platform::plain_lock guard_;
    task_ring stored_ ZEL_GUARDED_BY(guard_);
    // How many tasks were stored so far. Written under the guard; relaxed for those who only
    // look, because it may have changed again anyway.
    std::atomic<std::uint64_t> stored_so_far_{0};
    // A number of taken tasks that was right once, so that not every producer looks at what
    // the runner writes.
    std::uint64_t taken_at_least_ ZEL_GUARDED_BY(guard_) = 0;
    // Those that run stored tasks now, linked on their own stacks: a runner that could not
    // be noted down for want of memory would leave the tasks behind.
    runner* runners_ ZEL_GUARDED_BY(guard_) = nullptr;
    std::uint32_t runner_count_ ZEL_GUARDED_BY(guard_) = 0;
    // Runners of the first owner that have been submitted and have not begun; below zero
    // when one began first. It takes a while to wake a thread for one, in which each push
    // would submit another. Others than the first owner do without.
    const void* expecting_owner_ ZEL_GUARDED_BY(guard_) = nullptr;
    std::ptrdiff_t expected_runners_ ZEL_GUARDED_BY(guard_) = 0;

    // What the runner writes. All that is stored goes to it at once, so that it takes no lock
    // for every task. Belongs to the runner of a queue that has one at most, without the
    // guard, and is left to the next one when it is unwound. Other queues do without.
    alignas(64) task_ring next_;
    // How many tasks were taken so far. Written by that runner, else under the guard.
    // Sequentially consistent together with the next one: either a producer that is about
    // to sleep sees the room that a runner has made, or the runner sees the producer.
    std::atomic<std::uint64_t> taken_so_far_{0};
    // Whether a producer may wait for `not_full_`. Written under the guard.
    std::atomic<bool> room_is_awaited_{false};
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
