#include "framework/event_routing/src/event_routing/events/broadcast_statistics.h"

#include "framework/event_routing/src/event_routing/events/thread_counts.h"

#include <platform/clocks.h>
#include <platform/diagnostics.h>

#include <algorithm>
#include <span>
#include <utility>

namespace zel::event_routing::impl {

namespace {

using tasklib::unbiased_clock;

constexpr std::uint32_t broadcasts_in_period = 1000;

// A coarse reading lags behind by much less.
constexpr auto soon = std::chrono::seconds(1);

bool has_passed(unbiased_clock::time_point moment) noexcept {
    const auto ticks = platform::read_clock_coarsely(platform::clock::unbiased_time);
    if (ticks && moment - unbiased_clock::time_point(unbiased_clock::duration(*ticks)) >= soon)
        return false;
    return unbiased_clock::now() > moment;
}

} // namespace

broadcast_statistics::broadcast_statistics(thread_records& threads)
    : threads_(threads), period_(std::make_unique<statistics_data_t>()),
      spare_credit_(broadcasts_in_period) {
    deadline_.store(period_->deadline.time_since_epoch().count(), std::memory_order_relaxed);
}

broadcast_statistics::~broadcast_statistics() {
    threads_.drop_parts(this);
}

std::unique_ptr<const statistics_data_t>
broadcast_statistics::UpdateStatistics(thread_record* own, std::string_view paths) {
    auto* counts = own ? static_cast<thread_counts*>(own->part_of(this)) : nullptr;
    if (own && !counts)
        counts = add_counts(*own);
    const auto result = counts ? counts->count(paths) : count_outcome::no_credit;
    const bool is_late = has_passed(deadline());
    if (result == count_outcome::counted && !is_late)
        return nullptr;
    return settle(counts, result, paths, is_late);
}

unbiased_clock::time_point broadcast_statistics::deadline() const noexcept {
    return unbiased_clock::time_point(
        unbiased_clock::duration(deadline_.load(std::memory_order_relaxed)));
}

// Null when memory is short.
thread_counts* broadcast_statistics::add_counts(thread_record& own) {
    thread_counts* added = nullptr;
    platform::guarded([&] {
        auto made = std::make_unique<thread_counts>(*this);
        auto* const counts = made.get();
        threads_.add_part(own, this, std::move(made));
        added = counts;
    });
    return added;
}

std::unique_ptr<const statistics_data_t> broadcast_statistics::settle(thread_counts* own,
                                                                      count_outcome result,
                                                                      std::string_view paths,
                                                                      bool is_late) {
    std::unique_ptr<const statistics_data_t> ended;
    platform::scoped_lock inside(guard_);
    if (own)
        take_counts(*own);
    if (result == count_outcome::no_room)
        platform::guarded([&] { own->make_room(paths.size()); }); // else it keeps what it has
    if (result == count_outcome::no_room || result == count_outcome::no_credit) {
        // If it is full, the thread that has counted the last one is waiting for the guard.
        if (is_period_full())
            ended = end_period();
        add_paths(paths, 1);
        --spare_credit_;
    }
    const bool is_over = is_period_full() || (is_late && has_passed(deadline()));
    if (!ended && is_over)
        ended = end_period();
    if (own)
        give_credit(*own);
    return ended;
}

// Takes the credit of all threads back if it has to be known.
bool broadcast_statistics::is_period_full() {
    if (spare_credit_ == 0)
        for (thread_counts* counts : counting_)
            take_counts(*counts);
    return spare_credit_ == 0;
}

// Less the more threads there are, and towards the end of the period, so that little has to
// be taken back. Who got all of the last few would lose them to the next thread at once.
void broadcast_statistics::give_credit(thread_counts& own) noexcept {
    if (std::exchange(own.period_, period_number_) != period_number_)
        ++credited_threads_;
    const auto threads = std::max(credited_threads_, formerly_credited_);
    const auto share = (spare_credit_ + threads - 1) / threads;
    spare_credit_ -= share;
    own.word_.store(share, std::memory_order_release);
}

// The credit that is left, and what the thread has counted.
void broadcast_statistics::take_counts(thread_counts& from) noexcept {
    if (from.word_.load(std::memory_order_acquire) == 0)
        return;
    const auto word = from.word_.exchange(0, std::memory_order_acq_rel);
    const auto credit = thread_counts::credit_of(word);
    spare_credit_ += credit;
    const auto runs = std::span(from.runs_).first(thread_counts::runs_of(word));
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const auto credit_after = i + 1 < runs.size() ? runs[i + 1].credit : credit;
        add_paths(from.text_of(runs[i]), runs[i].credit - credit_after);
    }
}

// When memory is short, the report lacks the paths; its total has them.
void broadcast_statistics::add_paths(std::string_view paths, std::uint32_t count) noexcept {
    auto& period = *period_;
    platform::guarded([&] { period.add_paths(paths, count); });
}

std::unique_ptr<const statistics_data_t> broadcast_statistics::end_period() {
    auto next = std::make_unique<statistics_data_t>();
    for (thread_counts* counts : counting_)
        take_counts(*counts);
    period_->total_count =
        broadcasts_in_period - std::exchange(spare_credit_, broadcasts_in_period);
    deadline_.store(next->deadline.time_since_epoch().count(), std::memory_order_relaxed);
    ++period_number_;
    formerly_credited_ = std::exchange(credited_threads_, 0);
    return std::exchange(period_, std::move(next));
}

std::unique_ptr<const statistics_data_t> broadcast_statistics::take_period() {
    platform::scoped_lock inside(guard_);
    return end_period();
}

thread_counts::thread_counts(broadcast_statistics& all) : all_(all) {
    platform::scoped_lock inside(all_.guard_);
    all_.counting_.push_back(this);
}

thread_counts::~thread_counts() {
    platform::scoped_lock inside(all_.guard_);
    all_.take_counts(*this);
    std::erase(all_.counting_, this);
}

} // namespace zel::event_routing::impl
