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

// Producers and runners that are about equally quick meet a full or an empty queue
// all the time. To sleep and be woken, or to end a runner and start another, would
// cost more than the tasks. A look disturbs the other side, so there are few.
template <class Condition>
bool comes_soon(const Condition& holds) noexcept {
    constexpr int looks = 10;
    for (int i = 0; i < looks; ++i) {
        if (holds())
            return true;
        for (int spin = 0; spin < spins_before_parting / looks; ++spin)
            platform::pause_processor();
    }
    return false;
}

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
    {
        platform::scoped_lock inside(guard_);
        if (!is_crowded())
            return store(task);
    }
    wait_for_room();
    platform::scoped_lock inside(guard_);
    return store(task);
}

push_outcome task_queue::try_push(const std::shared_ptr<task_ifc>& task) {
    platform::scoped_lock inside(guard_);
    if (is_crowded())
        return push_outcome::full;
    return store(task) ? push_outcome::needs_runner : push_outcome::stored;
}

// Whether more tasks are stored than producers may leave alone.
bool task_queue::is_crowded() noexcept {
    const auto all = stored_so_far_.load(std::memory_order_relaxed);
    if (all - taken_at_least_ > roomy)
        taken_at_least_ = taken_so_far_.load(std::memory_order_seq_cst);
    return all - taken_at_least_ > roomy;
}

// True when there may be one more runner.
bool task_queue::store(const std::shared_ptr<task_ifc>& task) {
    stored_.push_back(task);
    stored_so_far_.store(stored_so_far_.load(std::memory_order_relaxed) + 1,
                         std::memory_order_relaxed);
    task->set_queue(this);
    return runner_count_ < runner_limit_;
}

std::size_t task_queue::length() const noexcept {
    // Acquired, so that no more tasks are seen taken than stored.
    const auto taken = taken_so_far_.load(std::memory_order_acquire);
    return stored_so_far_.load(std::memory_order_relaxed) - taken;
}

versioned_ifc* task_queue::query_interface(const interface_id& wanted) {
    return wanted == versioned_ifc::id || wanted == task_queue_room_ifc::id ? this : nullptr;
}

void task_queue::wait_for_room() {
    if (comes_soon([&] { return length() <= comfortable; })) // with room for some more
        return;
    {
        platform::scoped_lock inside(guard_);
        not_full_.reset();
        room_is_awaited_.store(true, std::memory_order_seq_cst);
        if (!is_crowded())
            return;
    }
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
    if (runner_count_ >= runner_limit_ || length() == 0)
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

std::shared_ptr<task_ifc> task_queue::take_next() {
    auto next = runner_limit_ == 1 ? take_alone() : take_among_others();
    if (next && room_is_awaited_.load(std::memory_order_seq_cst))
        tell_of_room();
    return next;
}

// The runner has what was stored to itself, and runs it without the guard.
std::shared_ptr<task_ifc> task_queue::take_alone() {
    if (next_.empty()) {
        comes_soon([&] { return length() > 0; });
        platform::scoped_lock inside(guard_);
        if (leaves_empty_queue())
            return nullptr;
        next_.swap(stored_);
    }
    return take_counted(next_);
}

// A task must not wait behind one that another runner runs.
std::shared_ptr<task_ifc> task_queue::take_among_others() {
    comes_soon([&] { return length() > 0; });
    platform::scoped_lock inside(guard_);
    return leaves_empty_queue() ? nullptr : take_counted(stored_);
}

// Leaves the runners in the same step in which the queue is found empty, so that a
// push sees either this runner or the need for another.
bool task_queue::leaves_empty_queue() noexcept {
    if (!stored_.empty())
        return false;
    leave_runners(nullptr);
    return true;
}

// By one thread at a time.
std::shared_ptr<task_ifc> task_queue::take_counted(task_ring& tasks) noexcept {
    auto first = tasks.pop_front();
    taken_so_far_.store(taken_so_far_.load(std::memory_order_relaxed) + 1,
                        std::memory_order_seq_cst);
    return first;
}

void task_queue::tell_of_room() noexcept {
    platform::scoped_lock inside(guard_);
    if (is_crowded())
        return;
    room_is_awaited_.store(false, std::memory_order_relaxed);
    not_full_.set();
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
