#include "framework/event_routing/src/event_routing/events/thread_counts.h"

#include <algorithm>
#include <utility>

namespace zel::event_routing::impl {

auto thread_counts::find(const text_key& paths) const noexcept -> text_count* {
    const std::size_t mask = texts_.size() - 1;
    for (std::size_t place = paths.hash & mask;; place = (place + 1) & mask) {
        text_count* const known = texts_[place].get();
        if (!known || (known->hash == paths.hash && known->text == paths.text))
            return known;
    }
}

auto thread_counts::count(const text_key& paths) noexcept -> outcome {
    text_count* const known = find(paths);
    if (!known)
        return outcome::not_counted;
    noted_.store(known, std::memory_order_release);
    const auto left = credit_.fetch_sub(1, std::memory_order_acq_rel);
    if (left < 1)
        return outcome::not_counted;
    known->count.store(known->count.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    return left > 1 ? outcome::counted : outcome::credit_used_up;
}

bool thread_counts::admits(const text_key& paths) noexcept {
    return paths.text.size() <= longest_text &&
           (used_ < admitted_at_once || ++refusals_ % refusals_for_admission == 0);
}

// Null where there is no room.
auto thread_counts::add(const text_key& paths) -> text_count* {
    if (used_ == most_texts)
        forget_idle_texts();
    if (used_ == most_texts)
        return nullptr;
    auto made = std::make_unique<text_count>();
    made->text = paths.text;
    made->hash = paths.hash;
    if (2 * (used_ + 1) > texts_.size()) {
        std::vector<std::unique_ptr<text_count>> all(2 * texts_.size());
        all.swap(texts_);
        for (auto& known : all)
            if (known)
                place_for(known->hash) = std::move(known);
    }
    ++used_;
    return (place_for(paths.hash) = std::move(made)).get();
}

std::unique_ptr<text_count>& thread_counts::place_for(std::size_t hash) noexcept {
    const std::size_t mask = texts_.size() - 1;
    std::size_t place = hash & mask;
    while (texts_[place])
        place = (place + 1) & mask;
    return texts_[place];
}

// Those that were not broadcast here in this period.
void thread_counts::forget_idle_texts() {
    noted_.store(nullptr, std::memory_order_relaxed); // the thread is here, not counting
    std::vector<std::unique_ptr<text_count>> all(texts_.size());
    all.swap(texts_);
    for (auto& known : all)
        if (known && known->count.load(std::memory_order_relaxed) != known->reported) {
            place_for(known->hash) = std::move(known);
        } else if (known) {
            forgotten_ += known->reported;
            --used_;
        }
}

std::int32_t thread_counts::take_credit_back() noexcept {
    // More it becomes only under the guard. Acquire, as in the exchange: the thread may have
    // used up the last of it.
    if (credit_.load(std::memory_order_acquire) < 1)
        return 0;
    const auto left = std::max(0, credit_.exchange(0, std::memory_order_acq_rel));
    given_ -= static_cast<std::uint32_t>(left);
    return left;
}

} // namespace zel::event_routing::impl
