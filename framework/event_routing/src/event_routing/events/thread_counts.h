// What one thread has counted of the broadcasts of one service (broadcast_statistics.h).
//
// Only the thread writes the counts. Whoever ends the period, under the guard of the
// statistics, reads them at any moment, also while the thread is in the middle of one:
//
//     the thread                        who ends the period
//     1 notes which text it is          1 takes the credit back: no more broadcasts are
//     2 takes one from its credit         counted here, and the thread has counted as many as
//     3 adds one to the text's count      it was given
//                                       2 reads which text was noted
//                                       3 reads the counts; if they are one less than what
//                                         the thread has counted, it is between 2 and 3
//                                         with the text noted
#pragma once

#include "framework/event_routing/src/event_routing/events/broadcast_statistics.h"

#include <string>

namespace zel::event_routing::impl {

/// How often a thread has broadcast a text.
struct text_count {
    std::string text;
    std::size_t hash = 0;
    // Since the thread began. Written by the thread; release and acquire for whoever
    // reads them as the table above says.
    std::atomic<std::uint32_t> count{0};
    std::uint32_t reported = 0; // of these; under the guard
};

class thread_counts final : public thread_part {
public:
    explicit thread_counts(broadcast_statistics& all);
    /// On the thread at its end, or with the service.
    ~thread_counts() override;
    thread_counts(const thread_counts&) = delete;
    thread_counts& operator=(const thread_counts&) = delete;

    enum class outcome { counted, credit_used_up, not_counted };

    /// By the thread alone.
    outcome count(const text_key& paths) noexcept;

private:
    friend class broadcast_statistics;

    // Few enough that the texts and their table stay below 64 KB for a thread and a service.
    static constexpr std::size_t most_texts = 256;
    static constexpr std::size_t longest_text = 128;
    // A text that is not known is counted under the guard; one in so many becomes known,
    // which lets in what comes often.
    static constexpr std::uint32_t refusals_for_admission = 16;
    static constexpr std::size_t admitted_at_once = 8;

    text_count* find(const text_key& paths) const noexcept;

    // The rest by the thread, and under the guard, because others read the texts.
    bool admits(const text_key& paths) noexcept;
    text_count* add(const text_key& paths);
    std::unique_ptr<text_count>& place_for(std::size_t hash) noexcept;
    void forget_idle_texts();
    std::int32_t take_credit_back() noexcept;

    broadcast_statistics& all_;
    // How many broadcasts the thread may count; below one: none. Acquire and release, as the
    // table above says.
    std::atomic<std::int32_t> credit_{0};
    std::atomic<text_count*> noted_{nullptr}; // likewise
    // A power of two of places with open addressing, at most half of them in use.
    std::vector<std::unique_ptr<text_count>> texts_ =
        std::vector<std::unique_ptr<text_count>>(2 * admitted_at_once);
    std::size_t used_ = 0;

    std::uint32_t refusals_ = 0;
    std::uint64_t period_ = 0;    // in which it was given credit last
    std::uint32_t given_ = 0;     // all credit so far, less what was taken back; wraps
    std::uint32_t forgotten_ = 0; // counts of texts that are not known any more; wraps
};

} // namespace zel::event_routing::impl
