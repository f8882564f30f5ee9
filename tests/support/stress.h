// What the stress tests share: threads that do anything at any time, and registrations
// that are dropped from inside and outside.
#pragma once

#include <tasklib/keep_registered.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace zel::test {

using cookie = std::shared_ptr<tasklib::keep_registered>;
using random_number = std::minstd_rand;

class registration {
public:
    // What the callable owns. Read by each call: freed memory if one ever outlived it.
    struct owned {
        bool is_late() const { return dropped || alive[15] != 7; }

        const std::vector<int> alive = std::vector<int>(16, 7);
        std::atomic<bool> dropped{false}; // from outside, and the drop has returned
        std::atomic<bool> ended{false};   // the same, of a drop that waits for all calls
    };
    const std::shared_ptr<owned> state = std::make_shared<owned>();

    // Under the lock: the callable may be called, and drop it, before that.
    void hold(cookie taken) {
        std::lock_guard inside(guard_);
        held_ = std::move(taken);
    }
    /// Null when it was dropped before.
    cookie take() {
        std::lock_guard inside(guard_);
        return std::move(held_);
    }
    /// False when it was dropped before. From inside, which waits for nobody, too.
    bool drop() { return take() != nullptr; }

private:
    std::mutex guard_;
    cookie held_;
};

/// How long a stress test goes on at least: as EVENT_ROUTING_STRESS_SECONDS says, if it does.
inline std::chrono::seconds stress_time(int otherwise) {
    const char* const text = std::getenv("EVENT_ROUTING_STRESS_SECONDS");
    return std::chrono::seconds(text ? std::atoi(text) : otherwise);
}

class commotion {
public:
    virtual ~commotion() = default;

    /// Runs on several threads for a few seconds and until everything has happened.
    void run(unsigned seed = 1) {
        const auto end = std::chrono::steady_clock::now() + stress_time(3);
        std::vector<std::jthread> running;
        for (unsigned thread = 0; thread < 4; ++thread)
            running.emplace_back([=, this] {
                random_number random(seed + thread);
                while (std::chrono::steady_clock::now() < end || !has_seen_everything())
                    step(random() % 16, random);
            });
    }

protected:
    virtual bool has_seen_everything() const = 0;
    virtual void step(unsigned kind, random_number& random) = 0;

    template <class Item>
    Item held_in(const Item& place) {
        std::lock_guard inside(guard_);
        return place;
    }
    /// Returns what the place held before, to go without the lock.
    template <class Item>
    Item put(Item& place, Item fresh) {
        std::lock_guard inside(guard_);
        return std::exchange(place, std::move(fresh));
    }
    void replace(std::shared_ptr<registration>& place, std::shared_ptr<registration> fresh) {
        const auto former = put(place, std::move(fresh));
        if (former && former->drop())
            former->state->dropped = true;
    }

private:
    std::mutex guard_; // of the places
};

} // namespace zel::test
