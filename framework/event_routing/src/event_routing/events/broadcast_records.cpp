#include "framework/event_routing/src/event_routing/events/broadcast_records.h"

#include <platform/clocks.h>

#include <algorithm>
#include <utility>

namespace zel::event_routing::impl {

namespace {

using tasklib::unbiased_clock;

constexpr std::uint32_t broadcasts_in_period = 1000;

// A coarse reading lags behind by much less.
constexpr auto soon = std::chrono::seconds(1);

class coarse_time {
public:
    coarse_time() noexcept {
        if (const auto ticks = platform::read_clock_coarsely(platform::clock::unbiased_time))
            now_ = unbiased_clock::time_point(unbiased_clock::duration(*ticks));
    }

    bool is_after(unbiased_clock::time_point moment) const noexcept {
        return moment - now_ < soon && unbiased_clock::now() > moment;
    }

private:
    unbiased_clock::time_point now_ = unbiased_clock::time_point::max();
};

} // namespace

broadcast_records::broadcast_records() : period_(std::make_unique<statistics_data_t>()) {
    deadline_ = period_->deadline;
    platform::prepare_heavy_barrier();
}

const match_list* broadcast_records::recall(visitor& broadcast, std::uint64_t generation) {
    const auto thread = std::this_thread::get_id();
    platform::scoped_lock inside(guard_);
    broadcast.thread_ = thread;
    take_seat(broadcast);
    const match_list* const known = lists_.find(broadcast.paths_).get();
    if (!known || known->generation != generation)
        return nullptr;
    ++known->book.users;
    return broadcast.used_ = known;
}

void broadcast_records::remember(visitor& broadcast, std::shared_ptr<const match_list> matches) {
    std::shared_ptr<const match_list> replaced; // goes when the guard is free
    platform::scoped_lock inside(guard_);
    broadcast.own_ = std::move(matches);
    auto outcome = lists_.remember(broadcast.own_);
    broadcast.own_->book.is_current = outcome.is_remembered;
    if ((replaced = std::move(outcome.replaced)))
        detach(replaced);
}

void broadcast_records::keep(visitor& broadcast, std::shared_ptr<const match_list> matches) {
    platform::scoped_lock inside(guard_);
    broadcast.own_ = std::move(matches);
}

void broadcast_records::take_seat(visitor& broadcast) {
    const auto place = std::ranges::find(under_way_, nullptr);
    const auto seat = static_cast<std::size_t>(place - under_way_.begin());
    if (place == under_way_.end())
        under_way_.push_back(&broadcast);
    else
        *place = &broadcast;
    broadcast.seat_ = seat;
}

void broadcast_records::count_uses(registered_handler& removed) noexcept {
    const auto self = std::this_thread::get_id();
    bool look_twice = false;
    {
        // Broadcasts that have no list yet, or come later, find the handler retired.
        platform::scoped_lock inside(guard_);
        look_twice = std::ranges::any_of(under_way_, [&](const visitor* v) {
            return v && v->thread_ != self && v->list() && v->list()->contains(removed);
        });
    }
    if (look_twice) // at what the other threads may just be announcing
        platform::heavy_barrier();
    platform::scoped_lock inside(guard_);
    for (visitor* const v : under_way_)
        if (v && v->inside_.load(std::memory_order_acquire) == &removed) {
            v->is_use_counted_ = true;
            removed.count_use();
        }
}

void broadcast_records::end_use(visitor& broadcast, registered_handler& used) {
    bool was_counted = false;
    {
        platform::scoped_lock inside(guard_);
        was_counted = std::exchange(broadcast.is_use_counted_, false);
    }
    if (was_counted)
        used.end_use();
}

// Leaves a list to its users.
void broadcast_records::detach(const std::shared_ptr<const match_list>& matches) noexcept {
    matches->book.is_current = false;
    if (matches->book.users > 0)
        matches->book.self = matches;
}

// The list of a text remembers where in the period its count is; a text without a list is
// added each time.
void broadcast_records::count(const visitor& broadcast) {
    const match_list* const matched = broadcast.list();
    const match_list* const current =
        matched && matched->book.is_current ? matched : lists_.find(broadcast.paths_).get();
    if (current && current->book.period == period_number_) {
        ++period_->path_counts[current->book.place_in_period].count;
    } else {
        period_->add_path(broadcast.paths_.text);
        if (current) {
            current->book.period = period_number_;
            current->book.place_in_period = period_->path_counts.size() - 1;
        }
    }
    ++total_count_;
}

std::unique_ptr<const statistics_data_t> broadcast_records::UpdateStatistics(visitor& broadcast) {
    const coarse_time now;
    std::shared_ptr<const match_list> replaced; // goes when the guard is free
    platform::scoped_lock inside(guard_);
    if (broadcast.seat_ != no_seat)
        under_way_[broadcast.seat_] = nullptr;
    if (broadcast.used_ && --broadcast.used_->book.users == 0)
        replaced.swap(broadcast.used_->book.self);
    count(broadcast);
    if (total_count_ < broadcasts_in_period && !now.is_after(deadline_))
        return nullptr;
    return end_period();
}

std::unique_ptr<statistics_data_t> broadcast_records::end_period() {
    auto next = std::make_unique<statistics_data_t>();
    period_->total_count = std::exchange(total_count_, 0);
    deadline_ = next->deadline;
    ++period_number_;
    return std::exchange(period_, std::move(next));
}

std::unique_ptr<const statistics_data_t> broadcast_records::take_period() {
    platform::scoped_lock inside(guard_);
    return end_period();
}

} // namespace zel::event_routing::impl
