// What one thread has counted of the broadcasts of one service (broadcast_statistics.h).
//
// It is a row of runs: a text, and how often it was broadcast before another one was. One word
// says how many runs there are and how many broadcasts the thread may still count. The thread
// changes it with each broadcast; whoever ends the period, or needs the credit, takes it away:
//
//     the thread                               who takes it away, under the guard
//     1 looks at the word                      1 exchanges it for one without runs and credit
//     2 another text: writes a run behind      2 reads the runs that there were
//       those that there are
//     3 exchanges the word for one with
//       this broadcast, if it is the same
//
// So a broadcast is either among those that were taken away, or its thread finds the word
// changed and goes to the guard. Until it has been there it writes no run that is read.
#pragma once

#include "framework/event_routing/src/event_routing/events/broadcast_statistics.h"

#include <string>
#include <string_view>

namespace zel::event_routing::impl {

class thread_counts final : public thread_part {
public:
    explicit thread_counts(broadcast_statistics& all);
    /// On the thread at its end, or with the service.
    ~thread_counts() override;
    thread_counts(const thread_counts&) = delete;
    thread_counts& operator=(const thread_counts&) = delete;

    /// By the thread alone.
    count_outcome count(std::string_view paths) noexcept {
        auto present = word_.load(std::memory_order_relaxed);
        const auto credit = credit_of(present);
        if (credit == 0)
            return count_outcome::no_credit;
        auto next = present - 1;
        const auto runs = runs_of(present);
        if (runs == 0 || text_of(runs_[runs - 1]) != paths) {
            if (!append(runs, paths, credit))
                return count_outcome::no_room;
            next += one_run;
        }
        if (!word_.compare_exchange_strong(present, next, std::memory_order_release,
                                           std::memory_order_relaxed))
            return count_outcome::no_credit;
        return credit > 1 ? count_outcome::counted : count_outcome::credit_used_up;
    }

private:
    friend class broadcast_statistics;

    struct run {
        std::uint32_t begin; // in the texts
        std::uint32_t length;
        std::uint32_t credit; // that the thread had before it
    };

    // The more runs have room, the less often the thread goes to the guard to empty the row.
    // These take 15 KB; most threads stay with the fewest.
    static constexpr std::size_t fewest_runs = 16;
    static constexpr std::size_t most_runs = 256;
    static constexpr std::size_t bytes_per_run = 48;

    static constexpr std::uint64_t one_run = std::uint64_t(1) << 32;
    static std::uint32_t runs_of(std::uint64_t word) noexcept {
        return static_cast<std::uint32_t>(word / one_run);
    }
    static std::uint32_t credit_of(std::uint64_t word) noexcept {
        return static_cast<std::uint32_t>(word);
    }
    std::string_view text_of(const run& one) const noexcept {
        return {texts_.data() + one.begin, one.length};
    }

    bool append(std::uint32_t runs, std::string_view paths, std::uint32_t credit) noexcept;
    void make_room(std::size_t length);

    broadcast_statistics& all_;
    // Release and acquire: whoever takes the word away finds the runs written.
    std::atomic<std::uint64_t> word_{0};
    // What there is room for. Another size they get by the thread, under the guard.
    std::vector<run> runs_ = std::vector<run>(fewest_runs);
    std::vector<char> texts_ = std::vector<char>(fewest_runs * bytes_per_run);
    std::uint64_t period_ = 0; // in which it was given credit last; under the guard
};

} // namespace zel::event_routing::impl
