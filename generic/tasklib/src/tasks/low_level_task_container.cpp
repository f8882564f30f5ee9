#include "generic/tasklib/src/tasks/low_level_task_container.h"

#include "generic/tasklib/src/tasks/task_library.h"

#include <platform/diagnostics.h>
#include <platform/process.h>

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace zel::tasklib {

low_level_task_container::~low_level_task_container() {
    const auto somebody_is_leaving = [&] {
        platform::scoped_lock inside(guard_);
        return !std::ranges::all_of(
            held_, [&](const auto& task) ZEL_REQUIRES(guard_) { return is_forgotten_by(*task); });
    };
    while (somebody_is_leaving()) // between two steps
        platform::sleep_for(platform::milliseconds(1));
}

bool low_level_task_container::is_forgotten_by(task_ifc& task) {
    auto* const placed = query<placed_task_ifc>(task.cancellation());
    return !placed || placed->forget_holder(*this);
}

void low_level_task_container::add(const std::shared_ptr<task_ifc>& task) {
    bool ended = false;
    {
        platform::scoped_lock inside(guard_);
        // Whoever removes a task at its end can do nothing about a lack of memory.
        if (const auto most = ending_.size() + held_.size() + 1; ending_.capacity() < most)
            ending_.reserve(2 * most);
        held_.push_back(task);
        task->positions().in_container = held_.size() - 1;
        if (auto* const placed = query<placed_task_ifc>(task->cancellation()))
            placed->enter_holder(*this);
        ended = ended_;
    }
    if (ended)
        task->cancellation().cancel();
}

void low_level_task_container::remove(const std::shared_ptr<task_ifc>& task) {
    auto ended_state = task->get_ended_state();
    platform::scoped_lock inside(guard_);
    std::erase_if(ending_, [](const auto& e) { return e->is_ended(); });
    ending_.push_back(std::move(ended_state));
    if (is_forgotten_by(*task)) // otherwise it leaves by itself
        take_out(*task);
}

void low_level_task_container::let_go_at_end(task_ifc& task, ended_state_ifc& its_state) {
    std::shared_ptr<task_ifc> released; // without the lock
    platform::scoped_lock inside(guard_);
    released = take_out(task);
    its_state.set_ended();
}

std::shared_ptr<task_ifc> low_level_task_container::take_out(task_ifc& task) {
    const auto is_task = [&](const auto& held) { return held.get() == &task; };
    auto place = task.positions().in_container;
    // A task that somebody added to a second container is searched for.
    if (place >= held_.size() || !is_task(held_[place]))
        place = static_cast<std::size_t>(std::find_if(held_.begin(), held_.end(), is_task) -
                                         held_.begin());
    if (place == held_.size())
        return nullptr;
    auto taken = std::move(held_[place]);
    if (place != held_.size() - 1) {
        held_[place] = std::move(held_.back());
        held_[place]->positions().in_container = place;
    }
    held_.pop_back();
    return taken;
}

void low_level_task_container::end() {
    std::vector<std::shared_ptr<task_ifc>> canceled;
    {
        platform::scoped_lock inside(guard_);
        if (ended_)
            return;
        canceled = held_; // before the flag, which would let nobody try again
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
    return held_.empty();
}

std::shared_ptr<task_ifc>
low_level_task_container::first_to_wait_for(wait_exclusion_ifc* exclusion,
                                            const std::vector<const task_ifc*>& own) {
    platform::scoped_lock inside(guard_);
    for (const auto& task : held_)
        if (std::find(own.begin(), own.end(), task.get()) == own.end() &&
            !(exclusion && exclusion->excludes_from_wait(task->cancellation())))
            return task;
    return nullptr;
}

// False when nothing is held any more.
bool low_level_task_container::report_held_tasks() {
    std::vector<std::string> names;
    {
        platform::scoped_lock inside(guard_);
        for (const auto& task : held_)
            names.push_back(task->get_name());
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
        std::erase(ending_, state);
    }
    return true;
}

std::shared_ptr<ended_state_ifc> low_level_task_container::last_ended_state() {
    platform::scoped_lock inside(guard_);
    return ending_.empty() ? nullptr : ending_.back();
}

} // namespace zel::tasklib
