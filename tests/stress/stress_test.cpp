// Several threads do everything at once: broadcast, register, drop from inside and
// outside, watch, merge events, end services. The sanitizers watch. Runs for a few
// seconds, or for as many as EVENT_ROUTING_STRESS_SECONDS says.
#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "framework/exceptions/exceptions.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

namespace zel::event_routing::impl {
namespace {

std::chrono::seconds duration() {
    const char* const text = std::getenv("EVENT_ROUTING_STRESS_SECONDS");
    return std::chrono::seconds(text ? std::max(1, std::atoi(text)) : 3);
}

// Asynchronous parts that wait for each other's removal are a knot of their user, so
// nothing that one of them runs drops what is not its own.
thread_local bool inside_asynchronous_part = false;

using cookie = std::shared_ptr<tasklib::keep_registered>;
using service = std::shared_ptr<EventRoutingImpl>;
using random_number = std::minstd_rand;

// What the callable of a registration owns. Read by each call: freed memory if one
// ever outlived its callable.
struct owned {
    const std::vector<int> alive = std::vector<int>(16, 7);
    std::atomic<bool> dropped{false}; // from outside, and the drop has returned
};

struct registration {
    const std::shared_ptr<owned> state = std::make_shared<owned>();
    std::mutex guard;
    cookie held;

    // Under the lock: the callable may be called, and drop it, before that.
    void hold(cookie taken) {
        std::lock_guard inside(guard);
        held = std::move(taken);
    }
    void drop() {
        std::unique_lock inside(guard);
        auto mine = std::move(held);
        inside.unlock();
    }
    void drop_from_outside() {
        std::unique_lock inside(guard);
        auto mine = std::move(held);
        inside.unlock();
        if (!mine)
            return; // dropped from inside, which waits for nobody
        mine.reset();
        state->dropped = true;
    }
};

class commotion {
public:
    void run(unsigned seed) {
        random_number random(seed);
        while (std::chrono::steady_clock::now() < end_)
            step(random() % 16, random);
    }
    // Nothing runs afterwards.
    void finish() {
        for (auto& h : handlers_)
            put(h, nullptr);
        for (auto& m : monitors_)
            put(m, nullptr);
        end_service();
    }

    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> asynchronous_calls{0};
    std::atomic<std::uint64_t> told{0};
    std::atomic<std::uint64_t> late_calls{0};
    std::atomic<std::uint64_t> refused_upgrades{0};

private:
    void step(unsigned kind, random_number& random) {
        const auto events = current_service();
        if (kind < 3)
            put(handlers_[random() % handlers_.size()], listen(events, random));
        else if (kind == 3)
            put(handlers_[random() % handlers_.size()], nullptr); // drops from outside
        else if (kind == 4)
            events->GetEventHandlers();
        else if (kind == 5)
            upgrade();
        else if (kind == 6)
            put(monitors_[random() % monitors_.size()],
                random() % 4 == 0 ? nullptr : watch(*events, random));
        else if (kind == 7)
            events->BroadcastCumulativeEvent({false, std::int64_t(random() % 2000)}, paths(random),
                                             nullptr, {}, nullptr);
        else if (kind == 8 && random() % 50 == 0)
            end_service();
        else if (kind == 9)
            events->BroadcastEvent(paths(random), nullptr, {{"synchronous", any_limit(random)}},
                                   nullptr);
        else
            events->BroadcastEvent(paths(random), nullptr, {}, nullptr);
    }

    static std::string any_of(random_number& random, std::initializer_list<const char*> texts) {
        return texts.begin()[random() % texts.size()];
    }
    static std::string paths(random_number& random) {
        return any_of(random, {"a", "a.b", "a.b.c", "b.a"}) + ";" +
               any_of(random, {"a.b", "c.c", ""});
    }
    static std::int64_t any_limit(random_number& random) {
        return std::array<std::int64_t, 3>{-1, 0, 1}[random() % 3];
    }

    std::shared_ptr<registration> listen(const service& events, random_number& random) {
        const auto made = std::make_shared<registration>();
        const auto kind = random();
        synchronous_event_part first =
            [=, this, again = std::weak_ptr(events)](const std::string& path, auto&&...) {
                ++calls;
                const auto nested = again.lock();
                if (kind % 8 == 0 && !inside_asynchronous_part)
                    put(handlers_[kind / 8 % handlers_.size()], nullptr); // itself at times
                else if (kind % 8 == 1 && path != "c.c" && nested)
                    nested->BroadcastEvent("c.c", nullptr, {}, nullptr);
                return kind % 8 != 2;
            };
        asynchronous_event_part second = [=, this, self = std::weak_ptr(made),
                                          state = made->state](auto&&...) {
            ++asynchronous_calls;
            late_calls += state->dropped || state->alive[15] != 7;
            inside_asynchronous_part = true;
            const auto own = self.lock();
            if (kind % 16 == 3 && own)
                own->drop();
            inside_asynchronous_part = false;
            late_calls += state->dropped;
        };
        const auto parts = kind / 64 % 4; // both, one of them, or none
        const auto queue = kind / 256 % 2 ? events->CreateTaskQueue() : nullptr;
        made->hold(events->RegisterEventHandler(
            queue, any_of(random, {"a", "a.*", "a.b.*", "b.*", "c.c", "*"}),
            parts < 2 ? first : nullptr, parts % 2 ? nullptr : second, "handler"));
        return made;
    }

    std::shared_ptr<registration> watch(EventRoutingImpl& events, random_number& random) {
        const auto made = std::make_shared<registration>();
        made->hold(events.RegisterMonitorHandler([this, drops = random() % 8 == 0,
                                                  self = std::weak_ptr(made),
                                                  state = made->state](auto&&...) {
            ++told;
            late_calls += state->dropped || state->alive[15] != 7;
            const auto own = self.lock();
            if (drops && own)
                own->drop();
        }));
        return made;
    }

    void put(std::shared_ptr<registration>& place, std::shared_ptr<registration> fresh) {
        std::unique_lock inside(guard_);
        place.swap(fresh);
        inside.unlock();
        if (fresh)
            fresh->drop_from_outside();
    }

    service current_service() {
        std::lock_guard inside(guard_);
        return service_;
    }

    void end_service() {
        auto old = std::make_shared<EventRoutingImpl>();
        {
            std::lock_guard inside(guard_);
            service_.swap(old);
        }
        old->EndAndWaitForHandlers();
    }

    // A shared hold is never turned into an exclusive one. The analysis knows no
    // recursive locks.
    void upgrade() ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        {
            threading::exclusive_lock_guard writer(lock_);
            threading::exclusive_lock_guard again(lock_);
            ++guarded_by_lock_;
        }
        threading::shared_lock_guard reader(lock_);
        const auto before = guarded_by_lock_;
        try {
            lock_.lock();
            ADD_FAILURE() << "upgraded";
        } catch (const exceptions::error&) {
            ++refused_upgrades;
        }
        EXPECT_EQ(guarded_by_lock_, before);
    }

    const std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + duration();
    std::mutex guard_;
    service service_ = std::make_shared<EventRoutingImpl>();
    std::array<std::shared_ptr<registration>, 32> handlers_;
    std::array<std::shared_ptr<registration>, 4> monitors_;
    threading::recursive_shared_mutex lock_;
    std::uint64_t guarded_by_lock_ = 0;
};

TEST(Stress, EverythingAtOnceOnSeveralThreads) {
    const auto all = std::make_unique<commotion>();
    {
        std::vector<std::jthread> running;
        for (unsigned seed = 1; seed <= 4; ++seed)
            running.emplace_back([&all, seed] { all->run(seed); });
    }
    all->finish();
    EXPECT_EQ(all->late_calls, 0u) << "of asynchronous parts and monitors after a drop";
    EXPECT_GT(all->calls, 1000u);
    EXPECT_GT(all->asynchronous_calls, 100u);
    EXPECT_GT(all->told, 100u);
    EXPECT_GT(all->refused_upgrades, 100u);
}

} // namespace
} // namespace zel::event_routing::impl
