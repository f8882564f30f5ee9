// How often each text of paths was broadcast in the present period of the statistics.
//
// Whoever owns the object guards it.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_statistics.h"
#include "framework/event_routing/src/event_routing/events/remembered_lists.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace zel::event_routing::impl {

/// The moment of its making, read in the cheapest way.
class coarse_time {
public:
    using time_point = tasklib::unbiased_clock::time_point;

    coarse_time() noexcept;

    /// Looks closer only when it may be.
    bool is_after(time_point moment) const noexcept;

private:
    time_point now_ = time_point::max();
};

class period_counts {
public:
    using period = std::unique_ptr<statistics_data_t>;

    period_counts() : period_(make_period()), deadline_(period_->deadline) {}

    /// One broadcast. `list` is what the table has for the text, or null. A text with a list
    /// is looked for where the list says; one without is added anew each time.
    void count(std::string_view text, const remembered_list* list);

    bool is_over(const coarse_time& now) const noexcept {
        return total_count_ >= broadcasts_in_period || now.is_after(deadline_);
    }

    /// Begins another period and returns the one that has ended. Asks for memory only when
    /// no former one was handed back; throws when that is short, and the period goes on.
    period end();

    /// Of a period that is not needed any more, empties it. Returns false for one that takes
    /// too much memory to be kept. Needs no guard.
    static bool empty(statistics_data_t& former);

    /// What is to be the next one, unless there is one.
    void hand_back(period& emptied) noexcept {
        if (!next_)
            next_.swap(emptied);
    }

private:
    static constexpr std::uint32_t broadcasts_in_period = 1000;
    static constexpr std::size_t most_kept_text = 256 * 1024;

    // With room for all its counts; the room for their texts comes with use.
    static period make_period();

    // What every broadcast writes or reads comes first.
    std::uint32_t total_count_ = 0; // of the period
    std::uint64_t number_ = 1;      // of the period, for the notes of lists
    period period_;
    coarse_time::time_point deadline_; // of the period
    period next_;
};

} // namespace zel::event_routing::impl
