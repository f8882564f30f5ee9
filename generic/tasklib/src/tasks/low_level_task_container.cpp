#include "generic/tasklib/src/tasks/low_level_task_container.h"

#include "generic/tasklib/src/tasks/task_library.h"

#include <platform/diagnostics.h>
#include <platform/thread_id.h>

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace zel::tasklib {

low_level_task_container::~low_level_task_container() {
    while (const auto state = state_of_leaving_task())
        state->wait_ended({});
}

// Of a task that does not forget this container any more; null when all have forgotten it.
std::shared_ptr<ended_state_ifc> low_level_task_container::state_of_leaving_task() {
    platform::scoped_lock inside(guard_);
    for (std::size_t i = 0; i < held_; ++i)
        if (!is_forgotten_by(known(i)))
            return known(i).get_ended_state();
    return nullptr;
}

bool low_level_task_container::is_forgotten_by(task_ifc& task) {
    auto* const placed = query<placed_task_ifc>(task.cancellation());
    return !placed || placed->forget_holder(*this);
}

void low_level_task_container::add(const std::shared_ptr<task_ifc>& task) {
    bool ended = false;
    {
        platform::scoped_lock inside(guard_);
        row_.push_back(task);
        row_.back().swap(row_[held_]);
        task->positions().in_container = held_++;
        if (auto* const placed = query<placed_task_ifc>(task->cancellation()))
            placed->enter_holder(*this);
        ended = ended_;
    }
    if (ended)
        task->cancellation().cancel();
}

void low_level_task_container::remove(const std::shared_ptr<task_ifc>& task) {
    auto ended_state = task->get_ended_state();
    while (take_state_that_tells_of_end()) { // released without the lock, perhaps with its task
    }
    platform::scoped_lock inside(guard_);
    if (is_forgotten_by(*task)) // otherwise it leaves by itself
        take_out(*task);
    row_.push_back(std::move(ended_state));
}

std::shared_ptr<InterfaceBase> low_level_task_container::take_state_that_tells_of_end() {
    platform::scoped_lock inside(guard_);
    const auto found = std::find_if(
        row_.begin() + static_cast<std::ptrdiff_t>(held_), row_.end(),
        [](const auto& state) { return static_cast<ended_state_ifc&>(*state).is_ended(); });
    if (found == row_.end())
        return nullptr;
    auto taken = std::move(*found);
    row_.erase(found);
    return taken;
}

void low_level_task_container::let_go_at_end(task_ifc& task, ended_state_ifc& its_state) {
    std::shared_ptr<task_ifc> released; // without the lock
    platform::scoped_lock inside(guard_);
    released = take_out(task);
    its_state.set_ended();
}

std::shared_ptr<task_ifc> low_level_task_container::take_out(task_ifc& task) {
    auto place = task.positions().in_container;
    // A task that somebody added to a second container is searched for.
    if (place >= held_ || &known(place) != &task)
        for (place = 0; place < held_ && &known(place) != &task;)
            ++place;
    if (place == held_)
        return nullptr;
    auto taken = std::static_pointer_cast<task_ifc>(std::move(row_[place]));
    if (place != --held_) {
        row_[place] = std::move(row_[held_]);
        known(place).positions().in_container = place;
    }
    row_[held_] = std::move(row_.back());
    row_.pop_back();
    return taken;
}

void low_level_task_container::end() {
    std::vector<std::shared_ptr<task_ifc>> canceled;
    {
        platform::scoped_lock inside(guard_);
        if (ended_)
            return;
        canceled.reserve(held_); // before the flag, which would let nobody try again
        for (std::size_t i = 0; i < held_; ++i)
            canceled.push_back(held(i));
        ended_ = true;
    }
    for (const auto& task : canceled) // one that fails keeps no other from its end
        platform::guarded([&] { task->cancellation().cancel(); });
}

bool low_level_task_container::wait(threading::universal_timeout timeout, std::int32_t mode) {
    const deadline until(timeout);
    return wait_for_tasks(until, mode) && wait_for_ended_states(until, mode);
}

bool low_level_task_container::wait_for_tasks(const deadline& until, std::int32_t mode) {
    if (holds_nothing())
        return true;
    const auto current = get_this_taskcancellation();
    auto* const exclusion = current ? query<wait_exclusion_ifc>(*current) : nullptr;
    std::vector<const task_ifc*> own; // which this thread ends, because it canceled them
    while (const auto task = first_to_wait_for(exclusion, own)) {
        const auto waited_for = task->get_ended_state();
        if (waited_for->running_thread() == platform::this_thread_id()) {
            own.push_back(task.get());
            continue;
        }
        bool has_ended = waited_for->wait_ended(until.time_left());
        if (const auto latest = task->get_ended_state(); has_ended && latest != waited_for)
            has_ended = latest->wait_ended(until.time_left());
        if (!has_ended && (mode != report_timeout || report_held_tasks()))
            return false;
        drop_from_held(*task);
    }
    return true;
}

bool low_level_task_container::holds_nothing() {
    platform::scoped_lock inside(guard_);
    return held_ == 0;
}

std::shared_ptr<task_ifc>
low_level_task_container::first_to_wait_for(wait_exclusion_ifc* exclusion,
                                            const std::vector<const task_ifc*>& own) {
    platform::scoped_lock inside(guard_);
    for (std::size_t i = 0; i < held_; ++i)
        if (std::find(own.begin(), own.end(), &known(i)) == own.end() &&
            !(exclusion && exclusion->excludes_from_wait(known(i).cancellation())))
            return held(i);
    return nullptr;
}

// False when nothing is held any more.
bool low_level_task_container::report_held_tasks() {
    std::vector<std::string> names;
    {
        platform::scoped_lock inside(guard_);
        for (std::size_t i = 0; i < held_; ++i)
            names.push_back(known(i).get_name());
    }
    if (names.empty())
        return false;
    std::sort(names.begin(), names.end());
    platform::raise_text_report(
        fmt::format("task container timed out: {}", fmt::join(names, ", ")));
    return true;
}

void low_level_task_container::drop_from_held(task_ifc& task) {
    platform::scoped_lock inside(guard_);
    take_out(task);
}

bool low_level_task_container::wait_for_ended_states(const deadline& until, std::int32_t mode) {
    while (const auto state = last_ended_state()) {
        if (!state->wait_ended(until.time_left())) {
            if (mode == report_timeout)
                platform::raise_text_report("ended state timed out");
            return false;
        }
        platform::scoped_lock inside(guard_);
        std::erase(row_, std::shared_ptr<InterfaceBase>(state)); // no task is one
    }
    return true;
}

std::shared_ptr<ended_state_ifc> low_level_task_container::last_ended_state() {
    platform::scoped_lock inside(guard_);
    return row_.size() == held_ ? nullptr : std::static_pointer_cast<ended_state_ifc>(row_.back());
}

} // namespace zel::tasklib
