// A task: a runnable that knows who holds it.
#pragma once

#include "generic/tasklib/src/tasks/runnable.h"

#include <tasklib/keep_registered.h>
#include <tasklib/placed_task.h>
#include <tasklib/task_processor.h>

#include <vector>

namespace zel::tasklib {

class basic_task : public runnable, public task_ifc, public placed_task_ifc {
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
    void run(bool skip_body) override;
    void set_submitter(const std::shared_ptr<task_submitter_ifc>& place) override;
    std::shared_ptr<task_submitter_ifc> get_submitter() const override;
    std::shared_ptr<task_submitter_ifc> take_submitter() override;
    std::shared_ptr<ended_state_ifc> get_ended_state() const override {
        return ended_state_.share(shared_from_this());
    }
    bool try_claim() override;
    void set_queue(task_queue_ifc*) override {} // nobody asks a task for its queue
    void add_run_statistics(const run_snapshot& start, const run_snapshot& end) override;
    void set_run_statistics(const run_statistics& statistics) override;
    run_statistics get_run_statistics() const override;
    cancellation_ifc& cancellation() noexcept override { return *this; }
    task_positions& positions() noexcept override { return positions_; }

    versioned_ifc* query_interface(const interface_id& wanted) override;
    bool enter_pool(task_pool_ifc& pool) noexcept override;
    bool claim_in_pool() noexcept override;
    void run_claimed_in_pool() override { run_begun(false); }
    void enter_holder(task_holder_ifc& holder) noexcept override;
    bool forget_holder(task_holder_ifc& holder) noexcept override;

    /// What the calling thread is inside of, for a task that has just been made.
    std::shared_ptr<cancellation_ifc> cancellation_around() const {
        return tasklib::cancellation_around(ended_state_);
    }

protected:
    /// The maker adds it to the container, which may be null.
    basic_task(task_name name, std::uint32_t tag,
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

    void leave_holders(platform::shown_activity& on_thread) override;
    void start_follow_ups();
    template <class Look>
    void unless_stopped(const Look& look) const;
    void raise_running_thread();
    extras& with_extras() ZEL_REQUIRES(guard_);

    const std::uint32_t tag_;
    // The container that holds it, until `forgotten` or `stopped`. Release, acquire: whoever finds
    // it finds it made.
    std::atomic<task_holder_ifc*> holder_{nullptr};
    // The one that it was made for, if that is of another kind.
    const std::weak_ptr<task_container_low_level_ifc> container_;
    // Where it was submitted: to a pool, or to what is noted below while `elsewhere`. Acquire,
    // release: either a canceler finds the place, or who submits finds the task canceled.
    // Sequentially consistent with `elsewhere` to enter: of two that come at once one sees the
    // other.
    std::atomic<task_pool_ifc*> pool_{nullptr};
    std::weak_ptr<task_submitter_ifc> submitter_ ZEL_GUARDED_BY(guard_);
    std::unique_ptr<extras> extras_ ZEL_GUARDED_BY(guard_);
    task_positions positions_;
    std::shared_ptr<keep_registered> followed_task_;
};

} // namespace zel::tasklib
