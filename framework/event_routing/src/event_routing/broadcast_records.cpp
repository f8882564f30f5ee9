#include "framework/event_routing/src/event_routing/broadcast_records.h"

#include <platform/clocks.h>

#include <algorithm>
#include <utility>

namespace zel::event_routing::impl {

namespace {

using tasklib::unbiased_clock;

constexpr std::uint32_t broadcasts_in_period = 1000;

// Records of a few handlers take about half a kilobyte each. Where many more paths than these are
// broadcast in turn, to walk through the map is cheaper than to look for what has
// long left the processor's caches.
constexpr std::size_t most_records = 16'384;

// Longer ones are collected each time, so that all records together stay in bounds.
constexpr std::size_t most_handlers = 256;
constexpr std::size_t longest_text = 4096;

// When there is no room, one path in so many takes the place of the oldest: what is
// broadcast often gets in soon, while a walk over very many paths leaves most records
// where they are.
constexpr std::uint64_t refusals_for_admission = 16;

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
}

const match_list* broadcast_records::recall(visitor& broadcast, std::uint64_t generation) {
    platform::scoped_lock inside(guard_);
    const record* const known = find(broadcast);
    if (!known || known->matches->book.generation != generation)
        return nullptr;
    ++known->matches->book.users;
    return broadcast.used_ = known->matches.get();
}

void broadcast_records::remember(const visitor& broadcast, std::uint64_t generation,
                                 std::shared_ptr<const match_list> matches) {
    if (matches->handlers.size() > most_handlers || broadcast.text_.size() > longest_text)
        return;
    std::shared_ptr<const match_list> replaced; // goes when the guard is free
    platform::scoped_lock inside(guard_);
    auto& book = matches->book;
    if (record* const known = find(broadcast)) {
        if (known->matches->book.generation > generation)
            return;
        book.text = known->matches->book.text;
        replaced = detach(*known);
        known->matches = std::move(matches);
    } else {
        book.text = std::make_shared<const std::string>(broadcast.text_);
        record* const added = add(broadcast, *book.text);
        if (!added)
            return;
        replaced = std::exchange(added->matches, std::move(matches));
    }
    book.generation = generation;
    book.is_current = true;
}

broadcast_records::record* broadcast_records::find(const visitor& broadcast) {
    const auto entry = records_.find({broadcast.text_, broadcast.hash_});
    return entry == records_.end() ? nullptr : &entry->second;
}

// The place for a list, where the one that was thrown out for it still lies; null when
// there is no room.
broadcast_records::record* broadcast_records::add(const visitor& broadcast,
                                                  const std::string& text) {
    const key added{text, broadcast.hash_};
    record* place = nullptr;
    if (records_.size() < most_records) {
        place = &records_.try_emplace(added).first->second;
    } else if (++refusals_ % refusals_for_admission == 0) {
        place = std::exchange(oldest_, oldest_->next_arrival);
        const std::string_view old_text = *place->matches->book.text;
        auto node = records_.extract({old_text, std::hash<std::string_view>()(old_text)});
        node.key() = added;
        place->matches = detach(*place);
        records_.insert(std::move(node)); // in the memory of the other, so it cannot fail
    } else {
        return nullptr;
    }
    place->next_arrival = nullptr;
    (newest_ ? newest_->next_arrival : oldest_) = place;
    newest_ = place;
    return place;
}

// Takes a list out of a record and its count into the period.
std::shared_ptr<const match_list> broadcast_records::detach(record& from) noexcept {
    auto matches = std::move(from.matches);
    auto& book = matches->book;
    if (book.period == period_number_) {
        period_->path_counts[book.place_in_period].count = book.count;
        counted_[book.place_in_period] = nullptr;
    }
    book.is_current = false;
    if (book.users > 0)
        book.self = matches;
    return matches;
}

void broadcast_records::count(const match_list* counted, const visitor& broadcast) {
    if (!counted || !counted->book.is_current) {
        const record* const known = find(broadcast);
        counted = known ? known->matches.get() : nullptr;
    }
    if (!counted || counted->book.period != period_number_) {
        auto text =
            counted ? counted->book.text : std::make_shared<const std::string>(broadcast.text_);
        // So that the two grow together or not at all.
        counted_.reserve(std::max<std::size_t>(broadcasts_in_period, counted_.size() + 1));
        period_->path_counts.push_back({std::move(text), 1});
        counted_.push_back(counted);
        if (counted) {
            counted->book.count = 0;
            counted->book.period = period_number_;
            counted->book.place_in_period = counted_.size() - 1;
        }
    }
    if (counted)
        ++counted->book.count;
    ++total_count_;
}

std::unique_ptr<const statistics_data_t> broadcast_records::UpdateStatistics(visitor& broadcast) {
    const coarse_time now;
    std::shared_ptr<const match_list> replaced; // goes when the guard is free
    platform::scoped_lock inside(guard_);
    const match_list* const used = std::exchange(broadcast.used_, nullptr);
    if (used && --used->book.users == 0)
        replaced.swap(used->book.self);
    count(used, broadcast);
    if (total_count_ < broadcasts_in_period && !now.is_after(deadline_))
        return nullptr;
    return end_period();
}

std::unique_ptr<statistics_data_t> broadcast_records::end_period() {
    auto next = std::make_unique<statistics_data_t>();
    for (std::size_t i = 0; i < counted_.size(); ++i)
        if (counted_[i])
            period_->path_counts[i].count = counted_[i]->book.count;
    counted_.clear();
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
