// Tasks that wait for their time.
#pragma once

#include "libraries/tasks_core/task_threads.h"

#include <tasklib/task_scheduler.h>

#include <asio/basic_waitable_timer.hpp>
#include <map>
#include <optional>
#include <unordered_map>

namespace zel::tasklib {

class task_scheduler_impl final : public task_scheduler_ifc,
                                  public std::enable_shared_from_this<task_scheduler_impl> {
public:
    explicit task_scheduler_impl(std::shared_ptr<task_threads> threads);

    void schedule(const std::shared_ptr<task_ifc>& task,
                  const std::shared_ptr<task_processor_ifc>& processor,
                  const std::shared_ptr<scheduling_parameters_ifc>& parameters,
                  std::uint32_t flags) override;
    void withdraw(task_ifc& task) override;

    /// Takes nothing on from now; returns what was waiting.
    std::vector<std::shared_ptr<task_ifc>> stop_taking();

private:
    // The number keeps tasks that are due at the same moment in their order.
    using due = std::pair<unbiased_clock::time_point, std::uint64_t>;
    struct delayed_task {
        std::shared_ptr<task_ifc> task;
        std::shared_ptr<task_processor_ifc> processor;
    };

    void insert(const std::shared_ptr<task_ifc>& task,
                const std::shared_ptr<task_processor_ifc>& processor,
                unbiased_clock::time_point when);
    void set_timer();
    void submit_due();
    std::optional<delayed_task> take_first(unbiased_clock::time_point due_by);

    const std::shared_ptr<task_threads> threads_;
    // Used by the timer thread alone, which has ended before this object does.
    asio::basic_waitable_timer<unbiased_clock> timer_;

    // Guards what follows; never held while a task is submitted or canceled.
    platform::plain_lock guard_;
    std::map<due, delayed_task> delayed_ ZEL_GUARDED_BY(guard_);
    using place = std::map<due, delayed_task>::iterator;
    std::unordered_map<const task_ifc*, place> places_ ZEL_GUARDED_BY(guard_);
    std::uint64_t last_number_ ZEL_GUARDED_BY(guard_) = 0;
    bool ended_ ZEL_GUARDED_BY(guard_) = false;
};

} // namespace zel::tasklib
