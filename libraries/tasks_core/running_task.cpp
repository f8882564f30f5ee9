#include "libraries/tasks_core/running_task.h"

#include "framework/log/log_area.h"

#include <platform/announced_wait.h>

#include <vector>

namespace zel::tasklib {

namespace {

constexpr log::log_area tasks_log("tasks");
constinit log::source_position run_failed(__FILE__, 40);

// One task that this thread is inside of. Stands on the stack.
class run_frame {
public:
    explicit run_frame(const std::shared_ptr<task_ifc>& task) noexcept
        : task_(task), outer_(innermost_) {
        innermost_ = this;
    }
    ~run_frame() { innermost_ = outer_; }
    run_frame(const run_frame&) = delete;
    run_frame& operator=(const run_frame&) = delete;

    static run_frame* innermost() noexcept { return innermost_; }
    static bool inside_of(const cancellation_ifc& candidate) noexcept {
        for (const auto* frame = innermost_; frame; frame = frame->outer_)
            if (&frame->task_->cancellation() == &candidate)
                return true;
        return false;
    }

    /// Made when somebody asks for it, which most tasks do not.
    const std::shared_ptr<cancellation_ifc>& cancellation();

private:
    // Initial-exec: one load, no call, and nothing to destroy.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local run_frame* innermost_;

    const std::shared_ptr<task_ifc>& task_; // the runner's
    run_frame* const outer_;
    std::shared_ptr<cancellation_ifc> cancellation_;
};

constinit thread_local run_frame* run_frame::innermost_ = nullptr;

// Ends a wait when the task is canceled.
class wait_interruption final : public cancellation_callback {
public:
    explicit wait_interruption(std::shared_ptr<cancellation_ifc> task) : task_(std::move(task)) {
        task_->add_callback(this);
        if (task_->is_canceled())
            canceled_.set();
    }
    ~wait_interruption() override { task_->remove_callback(this); }

    void on_cancel(cancellation_ifc&) override { canceled_.set(); }
    platform::event* canceled() noexcept { return &canceled_; }

private:
    std::shared_ptr<cancellation_ifc> task_;
    platform::event canceled_{platform::reset_mode::manual, false};
};

class companion final : public cancellation_companion_ifc, public cancellable_wait_ifc {
public:
    companion(std::shared_ptr<cancellation_ifc> task,
              std::weak_ptr<cancellation_ifc> follower) noexcept
        : task_(std::move(task)), follower_(std::move(follower)) {}

    versioned_ifc* query_interface(const interface_id& wanted) override {
        if (wanted == cancellable_wait_ifc::id)
            return static_cast<cancellable_wait_ifc*>(this);
        if (wanted == cancellation_companion_ifc::id || wanted == versioned_ifc::id)
            return static_cast<cancellation_companion_ifc*>(this);
        return nullptr;
    }

    void propagate_cancel() override {
        if (const auto follower = follower_.lock())
            follower->cancel();
    }

    std::int32_t wait(platform::event* const* events, std::uint32_t count,
                      platform::milliseconds timeout) override {
        wait_interruption interruption(task_);
        std::vector<platform::event*> all(events, events + count);
        all.push_back(interruption.canceled());
        const platform::announced_wait others_take_over;
        const auto signalled = platform::wait_any(all, timeout);
        if (!signalled)
            return timed_out;
        return *signalled == count ? canceled : static_cast<std::int32_t>(*signalled);
    }

private:
    std::shared_ptr<cancellation_ifc> task_;
    std::weak_ptr<cancellation_ifc> follower_;
};

// Stands for one task while it runs. It stays longer where somebody still has a callback to
// remove from it, and does not keep the task alive.
class running_task final : public cancellation_ifc,
                           public companion_source_ifc,
                           public wait_exclusion_ifc,
                           public std::enable_shared_from_this<running_task> {
public:
    explicit running_task(const std::shared_ptr<task_ifc>& task) noexcept : task_(task) {}

    versioned_ifc* query_interface(const interface_id& wanted) override {
        if (wanted == cancellation_ifc::id || wanted == versioned_ifc::id)
            return static_cast<cancellation_ifc*>(this);
        if (wanted == companion_source_ifc::id)
            return static_cast<companion_source_ifc*>(this);
        if (wanted == wait_exclusion_ifc::id)
            return static_cast<wait_exclusion_ifc*>(this);
        return nullptr;
    }

    bool cancel() override {
        const auto task = task_.lock();
        return !task || task->cancellation().cancel();
    }
    bool is_canceled() const override {
        const auto task = task_.lock();
        return task && task->cancellation().is_canceled();
    }
    void add_callback(cancellation_callback* callback) override {
        if (const auto task = task_.lock())
            task->cancellation().add_callback(callback);
    }
    void remove_callback(cancellation_callback* callback) override {
        if (const auto task = task_.lock())
            task->cancellation().remove_callback(callback);
    }

    std::shared_ptr<cancellation_companion_ifc>
    get_companion(std::weak_ptr<cancellation_ifc> follower) override {
        return std::make_shared<companion>(shared_from_this(), std::move(follower));
    }

    bool excludes_from_wait(const cancellation_ifc& candidate) override {
        return run_frame::inside_of(candidate);
    }

private:
    std::weak_ptr<task_ifc> task_;
};

const std::shared_ptr<cancellation_ifc>& run_frame::cancellation() {
    if (!cancellation_)
        cancellation_ = std::make_shared<running_task>(task_);
    return cancellation_;
}

} // namespace

task_claim::task_claim(const std::shared_ptr<task_ifc>& task)
    : task_(task), placed_(query<placed_task_ifc>(task->cancellation())),
      is_ours_(placed_ ? placed_->claim_in_pool() : task->try_claim()) {
    if (is_ours_ && !placed_)
        task->take_submitter();
}

void task_claim::run() const {
    const run_frame inside(task_);
    if (placed_)
        placed_->run_claimed_in_pool();
    else
        task_->run(false);
}

void run_inside(const std::shared_ptr<task_ifc>& task) {
    const run_frame inside(task);
    task->run(false);
}

void run_pending(std::shared_ptr<task_ifc> task) {
    const auto failure = platform::guarded([&] {
        if (const task_claim ours(task); ours)
            ours.run();
    });
    if (failure)
        tasks_log.report(log::severity::failed_operation, run_failed, failure, [] {
            return std::string("zel::tasklib::run_pending - unexpected exception.");
        });
}

std::shared_ptr<cancellation_ifc> this_task_cancellation() {
    auto* const frame = run_frame::innermost();
    return frame ? frame->cancellation() : nullptr;
}

} // namespace zel::tasklib
