#include "libraries/tasks_core/task_processor_impl.h"

#include "libraries/tasks_core/running_task.h"

#include <algorithm>
#include <array>

namespace zel::tasklib {

// How tasks find back to the processor that they are submitted to, at any time. A reference in
// each task would be counted up and down by all threads.
class pool_door final : public task_pool_ifc {
public:
    bool open_for(task_processor_impl& processor) noexcept {
        platform::scoped_lock inside(guard_);
        if (processor_)
            return false;
        processor_ = &processor;
        return true;
    }
    void close() noexcept {
        platform::scoped_lock inside(guard_);
        processor_ = nullptr;
    }
    std::shared_ptr<task_submitter_ifc> place() noexcept override {
        platform::scoped_lock inside(guard_);
        return processor_ ? processor_->weak_from_this().lock() : nullptr;
    }

private:
    platform::plain_lock guard_; // a processor that goes waits for those who look
    task_processor_impl* processor_ ZEL_GUARDED_BY(guard_) = nullptr;
};

namespace {

// Outlive the processors: there is one, but for tests.
constinit std::array<pool_door, 4> doors;

pool_door* open_door(task_processor_impl& processor) noexcept {
    const auto free = std::ranges::find_if(doors, [&](auto& d) { return d.open_for(processor); });
    return free == doors.end() ? nullptr : &*free;
}

} // namespace

task_processor_impl::task_processor_impl(std::shared_ptr<task_threads> threads) noexcept
    : threads_(std::move(threads)), door_(open_door(*this)) {}

task_processor_impl::~task_processor_impl() {
    if (door_)
        door_->close();
}

void task_processor_impl::enter(task_ifc& task) {
    auto* const placed = query<placed_task_ifc>(task.cancellation());
    if (!placed || !door_ || !placed->enter_pool(*door_))
        task.set_submitter(shared_from_this());
}

void task_processor_impl::submit(const std::shared_ptr<task_ifc>& task, std::uint32_t) {
    enter(*task);
    try {
        threads_->submit(task);
    } catch (...) {
        task->take_submitter();
        throw;
    }
    // A thread that canceled it a moment ago may have looked for it here in vain. On a
    // CPU that delays stores both looks may come too early; then the task is passed over when its
    // turn comes.
    if (task->cancellation().is_canceled())
        withdraw(*task);
}

void task_processor_impl::execute(const std::shared_ptr<task_ifc>& task, bool claim) {
    if (threads_->has_ended()) {
        task->cancellation().cancel();
        if (!claim)
            task->run(true); // it is the caller's, and nobody else ends it
        return;
    }
    // The body may let go of all other references, the caller's among them.
    const auto stays = task; // NOLINT(performance-unnecessary-copy-initialization)
    if (!claim) {
        threads_->run_begins();
        run_inside(stays);
    } else if (const task_claim ours(stays); ours) {
        threads_->run_begins();
        ours.run();
    }
}

void task_processor_impl::withdraw(task_ifc& task) {
    const auto and_what_it_holds = threads_->withdraw(task); // released without the lock
}

} // namespace zel::tasklib
