// Several threads register, drop from inside and outside, broadcast and list for
// a few seconds; the sanitizers watch.
#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "framework/exceptions/exceptions.h"
#include "tests/support/bare_service.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>

namespace zel::event_routing::impl {
namespace {

class commotion {
public:
    void run(unsigned seed) {
        std::minstd_rand random(seed);
        while (std::chrono::steady_clock::now() < end_)
            step(random() % 8, random);
    }

    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> refused_upgrades{0};

private:
    using cookie = std::shared_ptr<tasklib::keep_registered>;

    void step(unsigned kind, std::minstd_rand& random) {
        if (kind == 0)
            keep(random(), listen(random));
        else if (kind == 1)
            keep(random(), nullptr); // drops from outside
        else if (kind == 2)
            events_->GetEventHandlers();
        else if (kind == 3)
            upgrade();
        else if (kind == 4)
            replace_waited_for();
        else if (kind == 5)
            call_waited_for(random() % 4 == 0);
        else
            events_->BroadcastEvent(any_of(random, {"a", "a.b", "a.b.c", "b.a"}) + ";" +
                                        any_of(random, {"a.b", "c.c", ""}),
                                    nullptr, {}, nullptr);
    }

    static std::string any_of(std::minstd_rand& random, std::initializer_list<const char*> paths) {
        return paths.begin()[random() % paths.size()];
    }

    cookie listen(std::minstd_rand& random) {
        const unsigned slot = random();
        const unsigned kind = random() % 6;
        // Read by each call: freed memory if a call ever outlived its callable.
        const auto alive = std::make_shared<const std::vector<int>>(16, 7);
        return events_->RegisterEventHandler(
            nullptr, any_of(random, {"a", "a.*", "a.b.*", "b.*", "c.c", "*"}),
            [=, this](const std::string& path, const auto&, const auto&) {
                ++calls;
                if (kind < 2)
                    keep(slot + kind, nullptr); // drops from inside, at times itself
                else if (kind == 2 && path != "c.c")
                    events_->BroadcastEvent("c.c", nullptr, {}, nullptr);
                EXPECT_EQ((*alive)[15], 7);
                return true;
            },
            nullptr, "handler");
    }

    void keep(unsigned slot, cookie fresh) {
        std::unique_lock inside(guard_);
        cookies_[slot % cookies_.size()].swap(fresh);
        inside.unlock();
    }

    // A handler whose calls its removal waits for, as it will for asynchronous parts.
    struct waited_for {
        cookie registration;
        std::shared_ptr<std::atomic<int>> running;
    };

    void replace_waited_for() {
        const auto running = std::make_shared<std::atomic<int>>(0);
        waited_for old{plain_->add("w", running), running};
        swap_waited_for(old);
        old.registration.reset();
        if (old.running) {
            EXPECT_EQ(*old.running, 0) << "a call ran when the drop had returned";
        }
    }

    void call_waited_for(bool drop_inside) {
        const auto handler = plain_->find("w");
        if (!handler)
            return;
        const running_call inside(*handler);
        if (!inside)
            return;
        ++*inside->function;
        std::this_thread::yield();
        waited_for none;
        if (drop_inside)
            swap_waited_for(none);
        --*inside->function;
    }

    void swap_waited_for(waited_for& other) {
        std::lock_guard inside(guard_);
        std::swap(waited_for_, other);
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
        std::chrono::steady_clock::now() + std::chrono::seconds(4);
    std::shared_ptr<EventRoutingImpl> events_ = std::make_shared<EventRoutingImpl>();
    std::mutex guard_;
    std::array<cookie, 32> cookies_;
    using plain_service = test::bare_service<std::shared_ptr<std::atomic<int>>>;
    std::shared_ptr<plain_service> plain_ = std::make_shared<plain_service>();
    waited_for waited_for_;
    threading::recursive_shared_mutex lock_;
    std::uint64_t guarded_by_lock_ = 0;
};

TEST(Stress, RegistrationsDropsBroadcastsAndUpgradesOnSeveralThreads) {
    const auto all = std::make_unique<commotion>();
    {
        std::vector<std::jthread> running;
        for (unsigned seed = 1; seed <= 4; ++seed)
            running.emplace_back([&all, seed] { all->run(seed); });
    }
    EXPECT_GT(all->calls, 1000u);
    EXPECT_GT(all->refused_upgrades, 100u);
}

} // namespace
} // namespace zel::event_routing::impl
