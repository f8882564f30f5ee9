#include "libraries/tasks_core/thread_seats.h"

#include <algorithm>

namespace zel::tasklib {

void seat_list::add(thread_seat& seat) noexcept {
    seat.previous = last_;
    seat.next = nullptr;
    (last_ ? last_->next : first_) = &seat;
    last_ = &seat;
}

void seat_list::remove(thread_seat& seat) noexcept {
    (seat.previous ? seat.previous->next : first_) = seat.next;
    (seat.next ? seat.next->previous : last_) = seat.previous;
}

thread_seat* seat_list::take(thread_seat* seat) noexcept {
    if (seat)
        remove(*seat);
    return seat;
}

thread_seat* thread_seats::make() {
    const auto number = count();
    if (number == most)
        return nullptr;
    seats_[number] = std::make_unique<thread_seat>(static_cast<std::uint16_t>(number + 1));
    count_.store(number + 1, std::memory_order_seq_cst);
    return seats_[number].get();
}

bool thread_seats::have_tasks() const noexcept {
    if (common_.size() > 0)
        return true;
    const auto end = seats_.begin() + static_cast<std::ptrdiff_t>(count());
    return std::any_of(seats_.begin(), end, [](const auto& s) { return s->row.size() > 0; });
}

std::uint64_t thread_seats::taken() const noexcept {
    std::uint64_t sum = 0;
    for (std::size_t n = 0; n < count(); ++n)
        sum += seats_[n]->taken.load(std::memory_order_relaxed);
    return sum;
}

std::shared_ptr<task_ifc> thread_seats::take_for(thread_seat& seat) noexcept {
    if (common_.size() > 0)
        if (auto task = seat.row.take_half_of(common_))
            return task;
    // Not all threads begin with the same one.
    const auto all = count();
    for (std::size_t n = 0, other = seat.row.number(); n < all; ++n, ++other) {
        auto& row = seats_[other % all]->row;
        if (row.size() > 0 && &row != &seat.row)
            if (auto task = seat.row.take_half_of(row))
                return task;
    }
    return nullptr;
}

std::shared_ptr<task_ifc> thread_seats::take_from_next(std::size_t turn) {
    const auto chosen = turn % (count() + 1);
    auto& row = chosen == 0 ? common_ : seats_[chosen - 1]->row;
    return row.size() > 0 ? row.take() : nullptr;
}

task_row* thread_seats::row_of(task_ifc& task) noexcept {
    const std::size_t number = task_row::number_of_row(task);
    if (number == 0)
        return &common_;
    return number <= count() ? &seats_[number - 1]->row : nullptr;
}

std::shared_ptr<task_ifc> thread_seats::take_out(task_ifc& task) {
    while (auto* const row = row_of(task))
        if (auto found = row->take_out(task))
            return *std::move(found);
    return nullptr;
}

bool thread_seats::have(task_ifc& task) {
    auto* const row = task_row::was_in_none(task) ? nullptr : row_of(task);
    return row && row->has(task);
}

void thread_seats::close() noexcept {
    common_.close();
    for (std::size_t n = 0; n < count(); ++n)
        seats_[n]->row.close();
}

std::shared_ptr<task_ifc> thread_seats::take_rest() {
    auto task = common_.take_rest();
    for (std::size_t n = 0; !task && n < count(); ++n)
        task = seats_[n]->row.take_rest();
    return task;
}

} // namespace zel::tasklib
