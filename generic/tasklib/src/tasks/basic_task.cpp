#include "generic/tasklib/src/tasks/basic_task.h"

#include "generic/tasklib/src/tasks/low_level_task_container.h"

#include <platform/cancellation.h>
#include <platform/diagnostics.h>
#include <platform/thread_priority.h>

#include <typeinfo>
#include <utility>

namespace zel::tasklib {

namespace {

// A container of this copy of the library links the tasks that it holds, without a reference
// of theirs, which all threads would count up and down.
bool links_its_tasks(task_container_low_level_ifc* container) {
    if (!container)
        return false;
    const auto& kind = typeid(*container);
    return &kind == &typeid(low_level_task_container);
}

} // namespace

basic_task::basic_task(task_name name, std::uint32_t tag,
                       const std::shared_ptr<task_container_low_level_ifc>& container)
    : runnable(runnable_kind::task, std::move(name)), tag_(tag),
      container_(links_its_tasks(container.get()) ? std::weak_ptr<task_container_low_level_ifc>()
                                                  : container) {}

versioned_ifc* basic_task::query_interface(const interface_id& wanted) {
    return wanted == placed_task_ifc::id ? static_cast<placed_task_ifc*>(this)
                                         : runnable::query_interface(wanted);
}

void basic_task::run(bool skip_body) {
    const auto until_the_end = shared_from_this();
    run_once(skip_body);
}

void basic_task::add_follow_up(std::shared_ptr<task_ifc> task,
                               std::shared_ptr<task_processor_ifc> processor) {
    follow_up next{std::move(task), std::move(processor)};
    {
        platform::scoped_lock inside(guard_);
        auto& follow_ups = with_extras().follow_ups;
        follow_ups.push_back(next);
        if (!(progress_.fetch_or(has_follow_ups, std::memory_order_acq_rel) & completed))
            return;
        follow_ups.pop_back();
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

// The end of the run waits meanwhile, if it has not come yet.
template <class Look>
void basic_task::unless_stopped(const Look& look) const {
    platform::scoped_lock inside(guard_);
    if (progress_.fetch_or(looked_at, std::memory_order_acq_rel) & stopped)
        return;
    look();
    progress_.fetch_and(~std::uint32_t{looked_at}, std::memory_order_release);
}

void basic_task::raise_running_thread() {
    unless_stopped([&] { // so the number still names the thread that runs this task
        const auto thread = ended_state_->running_thread();
        if (thread != platform::no_thread)
            platform::raise_to_normal_priority(thread);
    });
}

// The first one stays the holder; what another container does with the task is its own affair.
void basic_task::enter_holder(task_holder_ifc& holder) noexcept {
    task_holder_ifc* none = nullptr;
    holder_.compare_exchange_strong(none, &holder, std::memory_order_release,
                                    std::memory_order_relaxed);
}

bool basic_task::forget_holder(task_holder_ifc& holder) noexcept {
    platform::scoped_lock inside(guard_); // get_container does not ask the holder meanwhile
    if (holder_.load(std::memory_order_relaxed) != &holder)
        return true; // the task does not come to it
    const auto before = progress_.fetch_or(forgotten, std::memory_order_acq_rel);
    return !(before & stopped) || ended_state_->is_ended();
}

std::shared_ptr<task_container_low_level_ifc> basic_task::get_container() const {
    std::shared_ptr<task_container_low_level_ifc> found;
    unless_stopped([&] { // so the holder waits for the task before it goes
        auto* const holder = holder_.load(std::memory_order_acquire);
        found = container_.lock();
        if (!found && holder && !(progress_.load(std::memory_order_relaxed) & forgotten))
            found = holder->container();
    });
    return found;
}

// A task that is claimed in vain, or canceled, stays where it is until it is taken out.
bool basic_task::enter_pool(task_pool_ifc& pool) noexcept {
    task_pool_ifc* none = nullptr;
    if ((progress_.load(std::memory_order_relaxed) & elsewhere) ||
        !pool_.compare_exchange_strong(none, &pool, std::memory_order_seq_cst))
        return false;
    if (!(progress_.load(std::memory_order_seq_cst) & elsewhere))
        return true;
    // Another place came meanwhile. Once it lets go of the guard, it has stepped back or stays.
    platform::scoped_lock inside(guard_);
    if (!(progress_.load(std::memory_order_relaxed) & elsewhere))
        return true;
    task_pool_ifc* own = &pool;
    pool_.compare_exchange_strong(own, nullptr, std::memory_order_relaxed);
    return false;
}

bool basic_task::claim_in_pool() noexcept {
    auto before = progress_.load(std::memory_order_relaxed);
    do {
        if (before & claimed)
            return false;
    } while (!progress_.compare_exchange_weak(before, before | claimed | started,
                                              std::memory_order_relaxed));
    pool_.store(nullptr, std::memory_order_relaxed);
    if (before & elsewhere)
        take_submitter();
    return !(before & started);
}

void basic_task::set_submitter(const std::shared_ptr<task_submitter_ifc>& place) {
    std::shared_ptr<task_submitter_ifc> known, pool; // released without the lock: each may be
                                                     // the last one
    do {
        if (auto* has_it = pool_.load(std::memory_order_relaxed)) {
            pool = has_it->place();
            if (pool && pool != place)
                throw task_is_already_submitted();
            if (pool)
                return;
            pool_.compare_exchange_strong(has_it, nullptr, std::memory_order_acq_rel);
        }
        platform::scoped_lock inside(guard_);
        known = submitter_.lock();
        if (known && known != place)
            throw task_is_already_submitted();
        submitter_ = place;
        progress_.fetch_or(elsewhere, std::memory_order_seq_cst);
        if (!pool_.load(std::memory_order_seq_cst))
            return;
        // A pool came meanwhile, and may not have seen the bit.
        submitter_.reset();
        progress_.fetch_and(~std::uint32_t{elsewhere}, std::memory_order_relaxed);
    } while (true);
}

std::shared_ptr<task_submitter_ifc> basic_task::get_submitter() const {
    if (auto* const pool = pool_.load(std::memory_order_relaxed))
        return pool->place();
    platform::scoped_lock inside(guard_);
    return submitter_.lock();
}

std::shared_ptr<task_submitter_ifc> basic_task::take_submitter() {
    if (auto* const pool = pool_.exchange(nullptr, std::memory_order_acq_rel))
        return pool->place();
    platform::scoped_lock inside(guard_);
    progress_.fetch_and(~std::uint32_t{elsewhere}, std::memory_order_relaxed);
    return std::exchange(submitter_, {}).lock();
}

// Relaxed: decides who runs; the task is published by its holder.
bool basic_task::try_claim() {
    return !(progress_.fetch_or(claimed, std::memory_order_relaxed) & claimed);
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

// Those that are started find the container and may ask for it. One that ends here may end the
// container with it, which waits for all tasks but those that it finds on its own thread.
void basic_task::start_follow_ups() {
    std::vector<follow_up> next;
    {
        platform::scoped_lock inside(guard_);
        progress_.fetch_or(completed, std::memory_order_acq_rel);
        next.swap(extras_->follow_ups);
    }
    for (const auto& f : next)
        platform::guarded([&] { f.start(); });
}

void basic_task::leave_holders(platform::shown_activity& on_thread) {
    auto before = progress_.load(std::memory_order_acquire);
    while (!(before & has_follow_ups) &&
           !progress_.compare_exchange_weak(before, before | completed | stopped,
                                            std::memory_order_acq_rel, std::memory_order_acquire)) {
    }
    if (before & has_follow_ups) {
        start_follow_ups();
        before = progress_.fetch_or(stopped, std::memory_order_acq_rel);
    }
    if (before & looked_at)
        platform::scoped_lock until_they_have_looked(guard_);
    ended_state_->set_running_thread(platform::no_thread);
    auto* const holder = holder_.load(std::memory_order_acquire);
    const bool is_held = holder && !(before & forgotten); // then the holder waits for this
    // That of another copy of the library may be both. Should this be its last reference, it goes
    // after the task has left it.
    const auto container = container_.lock();
    if (container && !(is_held && holder->container() == container))
        platform::guarded(
            [&] { container->remove(std::static_pointer_cast<basic_task>(shared_from_this())); });
    if (holder)
        on_thread.end();
    if (is_held)
        holder->let_go_at_end(*this, *ended_state_);
}

} // namespace zel::tasklib
