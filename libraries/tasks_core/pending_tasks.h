// Tasks in the order of their arrival, any of which can be taken out again.
#pragma once

#include <tasklib/task_ifc.h>

#include <deque>
#include <memory>
#include <utility>

namespace zel::tasklib {

/// Not synchronised. A task knows its number in the row, so taking it out costs no
/// search; it leaves a gap behind, which holds nothing. Gaps are closed before they
/// outnumber the tasks by far.
class pending_tasks {
public:
    bool empty() const noexcept { return count_ == 0; }
    std::size_t size() const noexcept { return count_; }

    /// A task that is in the row already keeps its place.
    void push(const std::shared_ptr<task_ifc>& task) {
        if (find(*task))
            return;
        row_.push_back(task);
        task->positions().in_processor = first_number_ + row_.size() - 1;
        ++count_;
    }

    /// Null when the row is empty.
    std::shared_ptr<task_ifc> take_first() {
        std::shared_ptr<task_ifc> first;
        while (!first && !row_.empty()) {
            first = std::move(row_.front());
            row_.pop_front();
            ++first_number_;
        }
        count_ -= first ? 1 : 0;
        return first;
    }

    /// The task if it was there, else null.
    std::shared_ptr<task_ifc> take_out(task_ifc& task) {
        auto* const place = find(task);
        if (!place)
            return nullptr;
        auto task_itself = std::exchange(*place, nullptr);
        --count_;
        if (row_.size() > 2 * count_ + bearable_gaps)
            close_gaps();
        return task_itself;
    }

    /// With the gaps; for tests.
    std::size_t length() const noexcept { return row_.size(); }

private:
    static constexpr std::size_t bearable_gaps = 64;

    // Costs no more than the withdrawals that made it necessary.
    void close_gaps() {
        std::erase(row_, nullptr);
        for (std::size_t i = 0; i < row_.size(); ++i)
            row_[i]->positions().in_processor = first_number_ + i;
    }

    std::shared_ptr<task_ifc>* find(task_ifc& task) {
        // Below the first number the difference is beyond every row.
        const std::size_t index = task.positions().in_processor - first_number_;
        return index < row_.size() && row_[index].get() == &task ? &row_[index] : nullptr;
    }

    std::deque<std::shared_ptr<task_ifc>> row_;
    std::size_t first_number_ = 0;
    std::size_t count_ = 0; // without the gaps
};

} // namespace zel::tasklib
