#include "framework/event_routing/src/event_routing/events/broadcast_statistics.h"

#include "framework/event_routing/src/event_routing/events/thread_counts.h"

#include <platform/clocks.h>
#include <platform/diagnostics.h>

#include <algorithm>
#include <utility>

namespace zel::event_routing::impl {

namespace {

using tasklib::unbiased_clock;

constexpr std::int32_t broadcasts_in_period = 1000;

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
broadcast_statistics::UpdateStatistics(thread_record* own, const text_key& paths) {
    thread_counts* const counts = own ? counts_of(*own) : nullptr;
    const auto outcome = counts ? counts->count(paths) : thread_counts::outcome::not_counted;
    const bool is_late = has_passed(deadline());
    if (outcome == thread_counts::outcome::counted && !is_late)
        return nullptr;
    return settle(counts, outcome != thread_counts::outcome::not_counted, paths, is_late);
}

unbiased_clock::time_point broadcast_statistics::deadline() const noexcept {
    return unbiased_clock::time_point(
        unbiased_clock::duration(deadline_.load(std::memory_order_relaxed)));
}

// Null when memory is short.
thread_counts* broadcast_statistics::counts_of(thread_record& own) {
    thread_part* known = own.part_of(this);
    if (!known)
        platform::guarded([&] {
            auto made = std::make_unique<thread_counts>(*this);
            auto* const part = made.get();
            threads_.add_part(own, this, std::move(made));
            known = part;
        });
    return static_cast<thread_counts*>(known);
}

std::unique_ptr<const statistics_data_t> broadcast_statistics::settle(thread_counts* own,
                                                                      bool is_counted,
                                                                      const text_key& paths,
                                                                      bool is_late) {
    std::unique_ptr<const statistics_data_t> ended;
    platform::scoped_lock inside(guard_);
    if (!is_counted) {
        // If it is full, the thread that has counted the last one is waiting for the guard.
        if (!has_credit(own) && is_period_full())
            ended = end_period();
        count_here(own, paths);
    }
    const bool is_over =
        (!has_credit(own) && is_period_full()) || (is_late && has_passed(deadline()));
    if (!ended && is_over)
        ended = end_period();
    if (own)
        give_credit(*own);
    return ended;
}

// Under the guard nobody takes it back.
bool broadcast_statistics::has_credit(const thread_counts* own) const noexcept {
    return own && own->credit_.load(std::memory_order_relaxed) > 0;
}

// Of a text that the thread does not know or has no credit for.
void broadcast_statistics::count_here(thread_counts* own, const text_key& paths) {
    auto* known = own ? own->find(paths) : nullptr;
    if (own && !known && own->admits(paths))
        known = own->add(paths);
    if (known)
        known->count.store(known->count.load(std::memory_order_relaxed) + 1,
                           std::memory_order_relaxed);
    else
        period_->add_path(paths.text, 1);
    // Paid from the thread's own credit, if it has some, or from what nobody was given.
    if (has_credit(own)) {
        own->credit_.store(own->credit_.load(std::memory_order_relaxed) - 1,
                           std::memory_order_relaxed);
        own->given_ -= known == nullptr;
    } else {
        --spare_credit_;
        if (known)
            ++own->given_;
    }
}

// Takes the credit of all threads back if it has to be known.
bool broadcast_statistics::is_period_full() noexcept {
    if (spare_credit_ == 0)
        for (thread_counts* counts : counting_)
            spare_credit_ += counts->take_credit_back();
    return spare_credit_ == 0;
}

// Less the more threads there are, and towards the end of the period, so that little has to
// be taken back.
void broadcast_statistics::give_credit(thread_counts& own) noexcept {
    if (own.credit_.load(std::memory_order_relaxed) > 0)
        return;
    if (std::exchange(own.period_, period_number_) != period_number_)
        ++takers_;
    const auto threads = std::max(takers_, former_takers_);
    const auto share =
        threads == 1 ? spare_credit_ : (spare_credit_ + 2 * threads - 1) / (2 * threads);
    spare_credit_ -= share;
    own.given_ += static_cast<std::uint32_t>(share);
    own.credit_.store(share, std::memory_order_release);
}

// What the thread has counted since the last time.
void broadcast_statistics::absorb(thread_counts& counts) {
    spare_credit_ += counts.take_credit_back();
    auto* const noted = counts.noted_.load(std::memory_order_acquire);
    const auto noted_count = noted ? noted->count.load(std::memory_order_acquire) : 0;
    std::uint32_t sum = counts.forgotten_ + noted_count;
    for (const auto& known : counts.texts_)
        if (known && known.get() != noted)
            sum += known->count.load(std::memory_order_relaxed); // as when it was noted last
    if (noted) // one more where the thread is about to add it
        report(*noted, noted_count + (counts.given_ - sum));
    for (const auto& known : counts.texts_)
        if (known && known.get() != noted)
            report(*known, known->count.load(std::memory_order_relaxed));
}

void broadcast_statistics::report(text_count& known, std::uint32_t count) {
    if (count != known.reported)
        period_->add_path(known.text, count - known.reported);
    known.reported = count;
}

std::unique_ptr<const statistics_data_t> broadcast_statistics::end_period() {
    auto next = std::make_unique<statistics_data_t>();
    for (thread_counts* counts : counting_)
        absorb(*counts);
    period_->total_count = static_cast<std::uint32_t>(
        broadcasts_in_period - std::exchange(spare_credit_, broadcasts_in_period));
    deadline_.store(next->deadline.time_since_epoch().count(), std::memory_order_relaxed);
    ++period_number_;
    former_takers_ = std::exchange(takers_, 0);
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
    try {
        all_.absorb(*this);
    } catch (const std::bad_alloc&) {
        // The report lacks the texts that there was no memory for.
    }
    std::erase(all_.counting_, this);
}

} // namespace zel::event_routing::impl
