#include "generic/tasklib/src/tasks/task_queue.h"

#include "generic/tasklib/src/tasks/cancellable_wait.h"
#include "generic/tasklib/src/tasks/start_task.h"
#include "generic/tasklib/src/tasks/tasks_log.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>
#include <platform/impersonation_watch.h>
#include <platform/process.h>

#include <array>
#include <utility>

namespace zel::tasklib {

namespace {

constinit log::source_position execute_failed(__FILE__, 25);
constinit log::source_position no_successor(__FILE__, 26);
constexpr int spins_before_parting = 500; // some ten microseconds
constexpr threading::universal_timeout patience_of_producers{false, 5'000'000};

} // namespace

// The calling thread as a runner. Its entry goes when the queue is found empty, or
// when the thread is unwound from inside a task.
class task_queue::runner {
public:
    explicit runner(task_queue& queue) noexcept
        : queue_(queue), runs_(queue.enter_runners(*this)) {}
    ~runner() {
        if (runs_) {
            platform::scoped_lock inside(queue_.guard_);
            queue_.leave_runners(this); // another one further out on this thread goes on
        }
    }
    runner(const runner&) = delete;
    runner& operator=(const runner&) = delete;

    bool runs() const noexcept { return runs_; }
    void found_empty() noexcept { runs_ = false; }

private:
    friend class task_queue; // which links it

    task_queue& queue_;
    const platform::thread_id thread_ = platform::this_thread_id();
    runner* next_ = nullptr;
    bool runs_;
};

bool task_queue::push(const std::shared_ptr<task_ifc>& task) {
    wait_for_room();
    platform::scoped_lock inside(guard_);
    return store(task);
}

push_outcome task_queue::try_push(const std::shared_ptr<task_ifc>& task) {
    platform::scoped_lock inside(guard_);
    if (stored_.size() > roomy)
        return push_outcome::full;
    return store(task) ? push_outcome::needs_runner : push_outcome::stored;
}

// True when there may be one more runner.
bool task_queue::store(const std::shared_ptr<task_ifc>& task) {
    stored_.push_back(task);
    count_.store(stored_.size(), std::memory_order_relaxed);
    if (stored_.size() > roomy)
        not_full_.reset();
    task->set_queue(this);
    return runner_count_ < runner_limit_;
}

versioned_ifc* task_queue::query_interface(const interface_id& wanted) {
    return wanted == versioned_ifc::id || wanted == task_queue_room_ifc::id ? this : nullptr;
}

// Producers and runners that are about equally quick meet a full or an empty queue
// all the time. To sleep and be woken, or to end a runner and start another, would
// cost more than the tasks.
template <class Condition>
bool task_queue::comes_soon(const Condition& holds) const noexcept {
    for (int i = 0; i < spins_before_parting; ++i) {
        if (holds(count_.load(std::memory_order_relaxed)))
            return true;
        platform::pause_processor();
    }
    return false;
}

void task_queue::wait_for_room() {
    if (comes_soon([](std::size_t stored) { return stored <= roomy; }))
        return;
    const std::array<platform::event*, 1> room = {&not_full_};
    cancellable_wait(room, patience_of_producers); // afterwards the task is stored anyway
}

void task_queue::run_all_stored_tasks(const std::shared_ptr<task_processor_ifc>& processor) {
    runner self(*this);
    if (!self.runs())
        return;
    const platform::own_code_only between_the_tasks;
    while (const auto task = take_next()) {
        try {
            processor->execute(task, true);
        } catch (const std::exception&) {
            tasks_log.report(log::severity::failed_operation, execute_failed,
                             std::current_exception(), [] {
                                 return std::string("zel::tasklib::task_queue::run_all_stored_tasks"
                                                    " - unexpected exception.");
                             });
        }
    }
    self.found_empty();
}

bool task_queue::needs_runner(const void* owner) {
    platform::scoped_lock inside(guard_);
    if (!expecting_owner_)
        expecting_owner_ = owner;
    return owner != expecting_owner_ || runner_count_ + expected_runners_ < runner_limit_;
}

void task_queue::runner_submitted(const void* owner) noexcept {
    platform::scoped_lock inside(guard_);
    expected_runners_ += owner == expecting_owner_ ? 1 : 0;
}

void task_queue::runner_came(const void* owner) noexcept {
    platform::scoped_lock inside(guard_);
    expected_runners_ -= owner == expecting_owner_ ? 1 : 0;
}

bool task_queue::enter_runners(runner& entering) noexcept {
    platform::scoped_lock inside(guard_);
    if (runner_count_ >= runner_limit_ || stored_.empty())
        return false;
    entering.next_ = std::exchange(runners_, &entering);
    ++runner_count_;
    return true;
}

// One entry of the thread, or all of them: a thread may have come back from inside a task.
void task_queue::leave_runners(const runner* only) noexcept {
    const auto leaving = platform::this_thread_id();
    for (runner** place = &runners_; *place;) {
        if (only ? *place == only : (*place)->thread_ == leaving) {
            *place = (*place)->next_;
            --runner_count_;
        } else {
            place = &(*place)->next_;
        }
    }
}

// Leaves the runners in the same step in which the queue is found empty, so that a
// push sees either this runner or the need for another.
std::shared_ptr<task_ifc> task_queue::take_next() {
    std::shared_ptr<task_ifc> next;
    bool has_room_again = false;
    comes_soon([](std::size_t stored) { return stored > 0; });
    {
        platform::scoped_lock inside(guard_);
        if (stored_.empty()) {
            leave_runners(nullptr);
            return nullptr;
        }
        has_room_again = stored_.size() == roomy + 1;
        next = std::move(stored_.front());
        stored_.pop_front();
        count_.store(stored_.size(), std::memory_order_relaxed);
    }
    if (has_room_again)
        not_full_.set();
    return next;
}

namespace {

task<void> submit_runner(const std::shared_ptr<task_container_low_level_ifc>& container,
                         const std::shared_ptr<task_processor_ifc>& processor,
                         const std::shared_ptr<task_queue_ifc>& queue, const void* expected_by);

// What a runner task does. A runner that is unwound leaves tasks behind for which
// nobody else would come.
class queue_run {
public:
    queue_run(std::shared_ptr<task_queue_ifc> queue, std::shared_ptr<task_processor_ifc> processor,
              std::weak_ptr<task_container_low_level_ifc> container,
              const void* expected_by) noexcept
        : queue_(std::move(queue)), processor_(std::move(processor)),
          container_(std::move(container)), expected_by_(expected_by) {}
    queue_run(queue_run&& other) noexcept
        : queue_(std::move(other.queue_)), processor_(std::move(other.processor_)),
          container_(std::move(other.container_)),
          expected_by_(std::exchange(other.expected_by_, nullptr)) {}
    ~queue_run() { is_no_longer_expected(); } // also when it was canceled before it began

    void operator()() {
        is_no_longer_expected();
        const successor if_unwound{*this, std::uncaught_exceptions()};
        queue_->run_all_stored_tasks(processor_);
    }

private:
    struct successor {
        const queue_run& run;
        int exceptions_before;
        ~successor() {
            if (std::uncaught_exceptions() == exceptions_before)
                return;
            const platform::no_cancellation to_the_end;
            const auto failure = platform::guarded(
                [&] { submit_runner(run.container_.lock(), run.processor_, run.queue_, nullptr); });
            // The next push brings a runner for all that is stored, should there be one.
            if (failure)
                tasks_log.report(log::severity::failed_operation, no_successor, failure, [] {
                    return std::string("No thread takes over the tasks of a queue whose runner was "
                                       "ended by one of them; they wait for the next one that is "
                                       "stored.");
                });
        }
    };

    void is_no_longer_expected() noexcept {
        if (const auto* owner = std::exchange(expected_by_, nullptr))
            queue_->runner_came(owner);
    }

    std::shared_ptr<task_queue_ifc> queue_;
    std::shared_ptr<task_processor_ifc> processor_;
    std::weak_ptr<task_container_low_level_ifc> container_;
    const void* expected_by_;
};

// Counts a runner when it has been handed over, so that nobody relies on one that cannot
// be; then what it would have done counts it out all the same.
struct submission {
    task_queue_ifc& queue;
    const void* owner;
    ~submission() { queue.runner_submitted(owner); }
};

task<void> submit_runner(const std::shared_ptr<task_container_low_level_ifc>& container,
                         const std::shared_ptr<task_processor_ifc>& processor,
                         const std::shared_ptr<task_queue_ifc>& queue, const void* expected_by) {
    // It serves whoever stores tasks, so it does not end with the task that made it.
    auto runner = make_independent_task(queue_runner_name, container,
                                        queue_run(queue, processor, container, expected_by));
    submit_or_cancel(runner.share(), *processor);
    return runner;
}

} // namespace

task<void> submit_run_queue_tasks(const std::shared_ptr<task_container_ifc>& container,
                                  const std::shared_ptr<task_processor_ifc>& processor,
                                  const std::shared_ptr<task_queue_ifc>& queue) {
    return submit_runner(container ? container->get_low_level_container() : nullptr, processor,
                         queue, nullptr);
}

void ensure_runner(const std::shared_ptr<task_container_ifc>& container,
                   const std::shared_ptr<task_processor_ifc>& processor,
                   const std::shared_ptr<task_queue_ifc>& queue) {
    const auto owner = container ? container->get_low_level_container() : nullptr;
    if (!owner) {
        submit_runner(owner, processor, queue, nullptr);
    } else if (queue->needs_runner(owner.get())) {
        const submission counted_at_the_end{*queue, owner.get()};
        submit_runner(owner, processor, queue, owner.get());
    }
}

} // namespace zel::tasklib
