#include "generic/tasklib/src/tasks/basic_task.h"

#include "generic/tasklib/src/tasks/cancellation_propagation.h"
#include "generic/tasklib/src/tasks/task_library.h"

#include <tasklib/task_container.h>

#include <platform/diagnostics.h>
#include <platform/thread_description.h>
#include <platform/thread_priority.h>

#include <utility>

namespace zel::tasklib {

basic_task::basic_task(tasks_core_module& library, std::string name, std::uint32_t tag,
                       const std::shared_ptr<task_container_low_level_ifc>& container)
    : runnable(runnable_kind::task, std::move(name), new_ended_state(library)), tag_(tag),
      container_(container) {}

void basic_task::add_follow_up(std::shared_ptr<task_ifc> task,
                               std::shared_ptr<task_processor_ifc> processor) {
    follow_up next{std::move(task), std::move(processor)};
    {
        platform::scoped_lock inside(guard_);
        if (!completed_) {
            with_extras().follow_ups.push_back(std::move(next));
            return;
        }
    }
    next.start();
}

// A follow-up that cannot be submitted is canceled: it must not stay behind.
void basic_task::follow_up::start() const {
    if (!processor || platform::guarded([&] { processor->submit(task, 0); }))
        task->cancellation().cancel();
}

bool basic_task::cancel() {
    if (runnable::cancel())
        return true;
    raise_running_thread();
    if (try_claim()) {
        if (const auto place = take_submitter())
            place->withdraw(*this);
        run(true);
    }
    return false;
}

// Under the lock that the run takes before it ends, so that the number still names
// the thread that runs this task.
void basic_task::raise_running_thread() const {
    platform::scoped_lock inside(guard_);
    const auto thread = ended_state_->running_thread();
    if (thread != platform::no_thread)
        platform::raise_to_normal_priority(thread);
}

std::shared_ptr<task_container_low_level_ifc> basic_task::get_container() const {
    platform::scoped_lock inside(guard_);
    return container_.lock();
}

void basic_task::set_submitter(const std::shared_ptr<task_submitter_ifc>& place) {
    std::shared_ptr<task_submitter_ifc> known; // released without the lock: it may be the last one
    platform::scoped_lock inside(guard_);
    known = submitter_.lock();
    if (known && known != place)
        throw task_is_already_submitted();
    submitter_ = place;
}

std::shared_ptr<task_submitter_ifc> basic_task::get_submitter() const {
    platform::scoped_lock inside(guard_);
    return submitter_.lock();
}

std::shared_ptr<task_submitter_ifc> basic_task::take_submitter() {
    platform::scoped_lock inside(guard_);
    return std::exchange(submitter_, {}).lock();
}

bool basic_task::try_claim() {
    return !claimed_.exchange(true, std::memory_order_relaxed);
}

void basic_task::add_run_statistics(const run_snapshot& start, const run_snapshot& end) {
    platform::scoped_lock inside(guard_);
    auto& sums = with_extras().statistics;
    ++sums.runs;
    sums.performance_counter += end.performance_counter - start.performance_counter;
    sums.thread_cycles += end.thread_cycles - start.thread_cycles;
    sums.system_time += end.system_time - start.system_time;
}

void basic_task::set_run_statistics(const run_statistics& statistics) {
    platform::scoped_lock inside(guard_);
    with_extras().statistics = statistics;
}

run_statistics basic_task::get_run_statistics() const {
    platform::scoped_lock inside(guard_);
    return extras_ ? extras_->statistics : run_statistics();
}

basic_task::extras& basic_task::with_extras() {
    if (!extras_)
        extras_ = std::make_unique<extras>();
    return *extras_;
}

// A thread that is inside of something already shows both.
void basic_task::prepare_thread(std::optional<std::string>& shown_before) {
    shown_before = platform::replace_thread_description(name());
    if (!shown_before->empty())
        platform::replace_thread_description(*shown_before + " - " + name());
}

void basic_task::restore_thread(std::string shown_before) noexcept {
    platform::restore_thread_description(std::move(shown_before));
}

void basic_task::leave_holders(const std::shared_ptr<runnable>& self) {
    std::vector<follow_up> next;
    std::shared_ptr<task_container_low_level_ifc> container;
    {
        platform::scoped_lock inside(guard_);
        completed_ = true;
        if (extras_)
            next.swap(extras_->follow_ups);
        if (next.empty()) {
            stop_running();
            container = take_container();
        }
    }
    if (!next.empty()) {
        for (const auto& f : next)
            platform::guarded([&] { f.start(); });
        // One that ends here may end the container with it, which waits for all tasks but
        // those that it finds on its own thread.
        next.clear();
        platform::scoped_lock inside(guard_);
        stop_running();
        container = take_container(); // those that were started may have asked for it
    }
    if (container)
        container->remove(std::static_pointer_cast<basic_task>(self));
}

std::shared_ptr<task_container_low_level_ifc> basic_task::take_container() {
    return std::exchange(container_, {}).lock();
}

} // namespace zel::tasklib
