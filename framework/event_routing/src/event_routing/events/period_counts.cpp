#include "framework/event_routing/src/event_routing/events/period_counts.h"

#include <platform/clocks.h>

#include <chrono>
#include <utility>

namespace zel::event_routing::impl {

namespace {

using tasklib::unbiased_clock;

// A coarse reading lags behind by much less.
constexpr auto soon = std::chrono::seconds(1);

} // namespace

coarse_time::coarse_time() noexcept {
    if (const auto ticks = platform::read_clock_coarsely(platform::clock::unbiased_time))
        now_ = time_point(unbiased_clock::duration(*ticks));
}

bool coarse_time::is_after(time_point moment) const noexcept {
    return moment - now_ < soon && unbiased_clock::now() > moment;
}

void period_counts::count(std::string_view text, const remembered_list* list) {
    if (list && list->counted.period == number_) {
        ++period_->path_counts[list->counted.place].count;
    } else {
        period_->add_path(text);
        if (list)
            list->counted = {number_, period_->path_counts.size() - 1};
    }
    ++total_count_;
}

auto period_counts::end() -> period {
    if (!next_)
        next_ = make_period();
    next_->begin();
    period_->total_count = std::exchange(total_count_, 0);
    deadline_ = next_->deadline;
    ++number_;
    return std::exchange(period_, std::move(next_));
}

bool period_counts::empty(statistics_data_t& former) {
    former.path_counts.clear();
    former.texts.clear();
    former.total_count = 0;
    return former.texts.capacity() <= most_kept_text;
}

auto period_counts::make_period() -> period {
    auto made = std::make_unique<statistics_data_t>();
    made->path_counts.reserve(broadcasts_in_period);
    return made;
}

} // namespace zel::event_routing::impl
