#include "libraries/tasks_core/task_row.h"

#include <algorithm>

namespace zel::tasklib {

namespace {

constexpr std::size_t bearable_gaps = 64;

// A place is the number of a row and that of the task in it, in one word. It is written under the
// guard of the row that the task is in. Relaxed: who reads it without that guard looks again.
constexpr int bits_of_task = 48;
constexpr std::uint64_t task_mask = (std::uint64_t{1} << bits_of_task) - 1;
static_assert(sizeof(task_positions::in_processor) == sizeof(std::uint64_t));

std::atomic_ref<std::size_t> place_of(task_ifc& task) noexcept {
    return std::atomic_ref<std::size_t>(task.positions().in_processor);
}

} // namespace

task_row::task_row(std::uint16_t number, std::size_t most) : number_(number), most_(most) {
    if (most != endless)
        tasks_.reserve(most);
}

std::uint16_t task_row::number_of_row(task_ifc& task) noexcept {
    return static_cast<std::uint16_t>(place_of(task).load(std::memory_order_relaxed) >>
                                      bits_of_task);
}

// No task has the number 0.
bool task_row::was_in_none(task_ifc& task) noexcept {
    return place_of(task).load(std::memory_order_relaxed) == 0;
}

task_row::outcome task_row::push(const std::shared_ptr<task_ifc>& task) {
    platform::scoped_lock inside(guard_);
    if (closed_)
        return outcome::closed;
    if (find(*task))
        return outcome::stored;
    if (tasks_.size() >= most_)
        return outcome::full;
    append(task);
    size_.store(size_.load(std::memory_order_relaxed) + 1, std::memory_order_seq_cst);
    return outcome::stored;
}

std::shared_ptr<task_ifc> task_row::take() {
    platform::scoped_lock inside(guard_);
    return closed_ ? nullptr : pop_front();
}

std::shared_ptr<task_ifc> task_row::take_rest() {
    platform::scoped_lock inside(guard_);
    return pop_front();
}

// Both rows are locked for the whole of it, so that who looks for a task finds it in one of them.
// The analysis does not know which of two locks is which.
std::shared_ptr<task_ifc> task_row::take_half_of(task_row& other) noexcept
    ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
    const bool other_first = other.number_ < number_;
    platform::scoped_lock one(other_first ? other.guard_ : guard_);
    platform::scoped_lock both(other_first ? guard_ : other.guard_);
    if (closed_ || other.closed_)
        return nullptr;
    const auto there = other.size_.load(std::memory_order_relaxed);
    auto first = other.pop_front();
    const auto more = std::min({(there + 1) / 2, batch, most_ - tasks_.size()});
    for (std::size_t n = 1; n < more; ++n)
        append(other.pop_front());
    if (more > 1)
        size_.store(size_.load(std::memory_order_relaxed) + more - 1, std::memory_order_seq_cst);
    return first;
}

std::optional<std::shared_ptr<task_ifc>> task_row::take_out(task_ifc& task) {
    platform::scoped_lock inside(guard_);
    if (number_of_row(task) != number_) // it cannot come back while the guard is held
        return std::nullopt;
    auto* const place = find(task);
    if (!place)
        return nullptr;
    auto task_itself = std::exchange(*place, nullptr);
    const auto left = size_.load(std::memory_order_relaxed) - 1;
    size_.store(left, std::memory_order_relaxed);
    if (tasks_.size() > 2 * left + bearable_gaps) {
        // Costs no more than the withdrawals that made it necessary.
        tasks_.drop_nulls();
        for (std::size_t n = 0; n < tasks_.size(); ++n)
            write_place(*tasks_[n], n);
    }
    return task_itself;
}

bool task_row::has(task_ifc& task) {
    platform::scoped_lock inside(guard_);
    return find(task) != nullptr;
}

void task_row::close() noexcept {
    platform::scoped_lock inside(guard_);
    closed_ = true;
}

std::size_t task_row::length() {
    platform::scoped_lock inside(guard_);
    return tasks_.size();
}

std::shared_ptr<task_ifc> task_row::pop_front() {
    while (!tasks_.empty()) {
        ++first_;
        if (auto task = tasks_.pop_front()) {
            size_.store(size_.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
            return task;
        }
    }
    return nullptr;
}

// The caller counts it.
void task_row::append(std::shared_ptr<task_ifc> task) {
    auto& known = *task;
    tasks_.push_back(std::move(task));
    write_place(known, tasks_.size() - 1);
}

void task_row::write_place(task_ifc& task, std::size_t index) const {
    place_of(task).store(std::uint64_t{number_} << bits_of_task | ((first_ + index) & task_mask),
                         std::memory_order_relaxed);
}

std::shared_ptr<task_ifc>* task_row::find(task_ifc& task) {
    const std::uint64_t place = place_of(task).load(std::memory_order_relaxed);
    if (place >> bits_of_task != number_)
        return nullptr;
    // Below the first number the difference is beyond every row.
    const std::uint64_t index = ((place & task_mask) - first_) & task_mask;
    return index < tasks_.size() && tasks_[index].get() == &task ? &tasks_[index] : nullptr;
}

} // namespace zel::tasklib
