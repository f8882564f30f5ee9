// How many threads a pool has, and what they do.
//
// A thread is asleep or awake. One that is awake runs a task, in which it may wait, or
// searches for one:
//
//     searching + waiting <= awake <= threads,  extra <= threads
//
// Every change is a step with a name, which checks that.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>

namespace zel::tasklib {

/// Not synchronised.
class thread_census {
public:
    std::size_t threads() const noexcept { return threads_; }
    std::size_t awake() const noexcept { return awake_; }
    std::size_t asleep() const noexcept { return threads_ - awake_; }
    std::size_t searching() const noexcept { return searching_; }
    /// In a task, and not in an announced wait.
    std::size_t running() const noexcept { return awake_ - searching_ - waiting_; }
    /// Threads beyond the cores, beside those that block without an announcement.
    std::size_t extra() const noexcept { return extra_; }

    /// Whether one more thread is due by the number of cores: those that wait need none.
    bool may_add_one(std::size_t cores, std::size_t most) const noexcept {
        return threads_ < std::min(cores + waiting_ + extra_, most);
    }
    /// Whether a thread that searches in vain may look on for a while: it must not take a core
    /// from those that run, and at most half of the cores search.
    bool may_linger(std::size_t cores) const noexcept {
        return awake_ - waiting_ < cores && 2 * searching_ <= cores;
    }

    /// It searches from the beginning.
    void thread_starts() {
        ++threads_;
        thread_wakes();
    }
    void extra_thread_starts() {
        ++extra_;
        thread_starts();
    }
    /// The system had none to give.
    void thread_does_not_start() {
        --threads_;
        --awake_;
        --searching_;
        forget_extra(1);
    }
    /// To search.
    void thread_wakes() {
        ++awake_;
        ++searching_;
        most_awake_ = std::max(most_awake_, awake_);
        check();
    }
    void search_begins() {
        ++searching_;
        check();
    }
    void search_ends() {
        --searching_;
        check();
    }
    /// Out of a search.
    void thread_falls_asleep() {
        --searching_;
        --awake_;
        check();
    }
    void wait_begins() {
        ++waiting_;
        check();
    }
    void wait_ends() {
        --waiting_;
        check();
    }
    /// A task has ended its thread.
    void running_thread_ends() {
        --awake_;
        --threads_;
        forget_extra(0);
    }
    void sleeping_threads_end(std::size_t count) {
        threads_ -= count;
        forget_extra(count);
    }

    /// The most that were awake at once since it was asked for last.
    std::size_t take_most_awake() noexcept {
        const auto most = most_awake_;
        most_awake_ = awake_;
        return most;
    }
    std::size_t most_awake() const noexcept { return most_awake_; }

private:
    // Any of those that end may have been an extra one.
    void forget_extra(std::size_t count) {
        extra_ = std::min(extra_ - std::min(extra_, count), threads_);
        check();
    }
    // A count that went below zero is a very large one, and is found by the next comparison.
    void check() const {
        assert(searching_ <= awake_ && waiting_ <= awake_ - searching_);
        assert(awake_ <= threads_ && extra_ <= threads_ && awake_ <= most_awake_);
    }

    std::size_t threads_ = 0;
    std::size_t awake_ = 0;
    std::size_t searching_ = 0;
    std::size_t waiting_ = 0; // in announced waits
    std::size_t extra_ = 0;
    std::size_t most_awake_ = 0;
};

} // namespace zel::tasklib
