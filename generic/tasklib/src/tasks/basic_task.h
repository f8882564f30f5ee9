// A task: a runnable that knows who holds it.
#pragma once

#include "generic/tasklib/src/tasks/runnable.h"

#include <tasklib/keep_registered.h>
#include <tasklib/task_ifc.h>
#include <tasklib/task_processor.h>
#include <tasklib/tasks_core_module.h>

#include <vector>

namespace zel::tasklib {

class basic_task : public runnable, public task_ifc {
public:
    /// Holds the cookie of what it follows, until it goes. Once, right after the making.
    void follow(std::shared_ptr<keep_registered> followed_task) noexcept {
        followed_task_ = std::move(followed_task);
    }

    /// Has another task submitted when this one has ended, at once if it has;
    /// without a processor it is canceled then.
    void add_follow_up(std::shared_ptr<task_ifc> task,
                       std::shared_ptr<task_processor_ifc> processor);

    bool cancel() override;

    std::string get_name() const override { return name(); }
    std::uint32_t get_tag() const override { return tag_; }
    std::shared_ptr<task_container_low_level_ifc> get_container() const override;
    void run(bool skip_body) override { run_once(skip_body); }
    void set_submitter(const std::shared_ptr<task_submitter_ifc>& place) override;
    std::shared_ptr<task_submitter_ifc> get_submitter() const override;
    std::shared_ptr<task_submitter_ifc> take_submitter() override;
    std::shared_ptr<ended_state_ifc> get_ended_state() const override { return ended_state_; }
    bool try_claim() override;
    void set_queue(task_queue_ifc*) override {} // nobody asks a task for its queue
    void add_run_statistics(const run_snapshot& start, const run_snapshot& end) override;
    void set_run_statistics(const run_statistics& statistics) override;
    run_statistics get_run_statistics() const override;
    cancellation_ifc& cancellation() noexcept override { return *this; }
    task_positions& positions() noexcept override { return positions_; }

protected:
    /// The maker adds it to the container, which may be null.
    basic_task(tasks_core_module& library, std::string name, std::uint32_t tag,
               const std::shared_ptr<task_container_low_level_ifc>& container);

private:
    struct follow_up {
        std::shared_ptr<task_ifc> task;
        std::shared_ptr<task_processor_ifc> processor;
        void start() const;
    };
    // What few tasks have; null for the others.
    struct extras {
        std::vector<follow_up> follow_ups;
        run_statistics statistics;
    };

    void prepare_thread(std::optional<std::string>& shown_before) override;
    void leave_holders(const std::shared_ptr<runnable>& self) override;
    void restore_thread(std::string shown_before) noexcept override;
    std::shared_ptr<task_container_low_level_ifc> take_container() ZEL_REQUIRES(guard_);
    void raise_running_thread() const;
    extras& with_extras() ZEL_REQUIRES(guard_);

    const std::uint32_t tag_;
    // Relaxed exchange: decides who runs; the task is published by its holder.
    std::atomic<bool> claimed_{false};
    bool completed_ ZEL_GUARDED_BY(guard_) = false; // no follow-up is stored any more
    std::weak_ptr<task_container_low_level_ifc> container_ ZEL_GUARDED_BY(guard_);
    std::weak_ptr<task_submitter_ifc> submitter_ ZEL_GUARDED_BY(guard_);
    std::unique_ptr<extras> extras_ ZEL_GUARDED_BY(guard_);
    task_positions positions_;
    std::shared_ptr<keep_registered> followed_task_;
};

} // namespace zel::tasklib
