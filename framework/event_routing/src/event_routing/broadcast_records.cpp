#include "framework/event_routing/src/event_routing/broadcast_records.h"

#include <platform/clocks.h>

#include <utility>

namespace zel::event_routing::impl {

namespace {

using tasklib::unbiased_clock;

constexpr std::uint32_t broadcasts_in_period = 1000;

// Records take about half a kilobyte each. Where many more paths than these are
// broadcast in turn, to walk through the map is cheaper than to look for what has
// long left the processor's caches.
constexpr std::size_t most_records = 16'384;

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

std::shared_ptr<const match_list> broadcast_records::recall(name& paths, std::uint64_t generation) {
    platform::scoped_lock inside(guard_);
    const auto entry = records_.find({paths.text_, paths.hash_});
    if (entry == records_.end())
        return nullptr;
    paths.record_ = &entry->second;
    paths.drops_ = drops_;
    return entry->second.generation == generation ? entry->second.matches : nullptr;
}

void broadcast_records::remember(name& paths, std::uint64_t generation,
                                 std::shared_ptr<const match_list> matches) {
    platform::scoped_lock inside(guard_); // the replaced list goes after it
    record* known = find(paths);
    if (!known)
        known = add(paths);
    if (!known || known->generation > generation)
        return;
    known->generation = generation;
    known->matches.swap(matches);
    paths.record_ = known;
    paths.drops_ = drops_;
}

broadcast_records::record* broadcast_records::find(const name& paths) {
    if (paths.record_ && paths.drops_ == drops_)
        return paths.record_;
    const auto entry = records_.find({paths.text_, paths.hash_});
    return entry == records_.end() ? nullptr : &entry->second;
}

// Null when there is no room.
broadcast_records::record* broadcast_records::add(const name& paths) {
    auto text = std::make_shared<const std::string>(paths.text_);
    const key added{*text, paths.hash_};
    record* place = nullptr;
    if (records_.size() < most_records) {
        place = &records_.try_emplace(added).first->second;
    } else if (++refusals_ % refusals_for_admission == 0) {
        ++drops_;
        place = std::exchange(oldest_, oldest_->next_arrival);
        auto node = records_.extract(records_.find({*place->paths, place->hash}));
        node.key() = added;
        node.mapped() = {};
        records_.insert(std::move(node)); // in the memory of the other, so it cannot fail
    } else {
        return nullptr;
    }
    place->paths = std::move(text);
    place->hash = paths.hash_;
    (newest_ ? newest_->next_arrival : oldest_) = place;
    newest_ = place;
    return place;
}

void broadcast_records::count(const name& paths) {
    record* const known = find(paths);
    auto& counts = period_->path_counts;
    if (known && known->period == period_number_) {
        ++counts[known->place_in_period].count;
    } else {
        counts.push_back(
            {known ? known->paths : std::make_shared<const std::string>(paths.text_), 1});
        if (known) {
            known->period = period_number_;
            known->place_in_period = counts.size() - 1;
        }
    }
    ++period_->total_count;
}

std::unique_ptr<const statistics_data_t> broadcast_records::UpdateStatistics(const name& paths) {
    const coarse_time now;
    platform::scoped_lock inside(guard_);
    count(paths);
    if (period_->total_count < broadcasts_in_period && !now.is_after(period_->deadline))
        return nullptr;
    auto next = std::make_unique<statistics_data_t>();
    ++period_number_;
    return std::exchange(period_, std::move(next));
}

} // namespace zel::event_routing::impl
