// Several threads register, drop from inside and outside, broadcast and list for
// a few seconds; the sanitizers watch.
#include "framework/event_routing/src/event_routing/event_routing_impl.h"

#include "framework/exceptions/exceptions.h"
#include "tests/support/bare_service.h"

#include <gtest/gtest.h>
#include <tasklib/keep_registered.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <random>
#include <thread>

template <>
struct zel::declared_type_name<std::function<void()>> {
    static std::string text() { return "test::function"; }
};

namespace zel::event_routing::impl {
namespace {

constexpr auto duration = std::chrono::seconds(4);
constexpr int threads = 4;

class commotion {
public:
    void run(unsigned seed) {
        std::minstd_rand random(seed);
        while (std::chrono::steady_clock::now() < end_)
            step(random);
    }

    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> refused_upgrades{0};

private:
    using cookie = std::shared_ptr<tasklib::keep_registered>;

    void step(std::minstd_rand& random) {
        switch (random() % 10) {
        case 0:
        case 1:
            keep(random(), listen(random));
            break;
        case 2:
            keep(random(), nullptr); // drops from outside
            break;
        case 3:
            events_->GetEventHandlers();
            break;
        case 4:
            upgrade();
            break;
        case 5:
            replace_waited_for();
            break;
        case 6:
            call_waited_for(random() % 4 == 0);
            break;
        default:
            events_->BroadcastEvent(path(random) + ";" + path(random), nullptr, {}, nullptr);
        }
    }

    static std::string path(std::minstd_rand& random) {
        static constexpr std::array paths = {"a", "a.b", "a.b.c", "b", "b.a", "c.c.c", ""};
        return paths[random() % paths.size()];
    }

    cookie listen(std::minstd_rand& random) {
        static constexpr std::array paths = {"a", "a.*", "a.b", "a.b.*", "b.*", "c.c.c", "*"};
        const unsigned slot = random();
        const unsigned kind = random() % 6;
        // Read by each call: freed memory if a call ever outlived its callable.
        const auto alive = std::make_shared<const std::vector<int>>(16, 7);
        return events_->RegisterEventHandler(
            nullptr, paths[random() % paths.size()],
            [=, this](const std::string&, const auto&, const auto&) {
                EXPECT_EQ((*alive)[15], 7);
                ++calls;
                if (kind == 0)
                    keep(slot, nullptr); // drops from inside, at times itself
                if (kind == 1)
                    keep(slot + 1, nullptr);
                thread_local int depth = 0;
                if (kind == 2 && depth == 0) {
                    ++depth;
                    events_->BroadcastEvent("c.c.c", nullptr, {}, nullptr);
                    --depth;
                }
                EXPECT_EQ((*alive)[15], 7);
                return true;
            },
            nullptr, "handler");
    }

    void keep(unsigned slot, cookie fresh) {
        {
            std::lock_guard inside(guard_);
            cookies_[slot % cookies_.size()].swap(fresh);
        }
        fresh.reset();
    }

    // A handler whose calls its removal waits for, as it will for asynchronous parts.
    struct waited_for {
        cookie registration;
        std::shared_ptr<std::atomic<int>> running;
    };

    void replace_waited_for() {
        const auto running = std::make_shared<std::atomic<int>>(0);
        const auto work = [running] {
            ++*running;
            std::this_thread::yield();
            --*running;
        };
        waited_for old{plain_->add("w", work), running};
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
        if (const running_call call(*handler); call) {
            (*call)();
            waited_for none;
            if (drop_inside)
                swap_waited_for(none);
        }
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
            threading::shared_lock_guard nested(lock_);
            threading::exclusive_lock_guard again(lock_);
            ++guarded_by_lock_;
        }
        threading::shared_lock_guard reader(lock_);
        const auto before = guarded_by_lock_;
        try {
            lock_.lock();
            lock_.unlock();
            ADD_FAILURE() << "upgraded";
        } catch (const exceptions::error&) {
            ++refused_upgrades;
        }
        EXPECT_EQ(guarded_by_lock_, before);
    }

    const std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + duration;
    std::shared_ptr<EventRoutingImpl> events_ = std::make_shared<EventRoutingImpl>();
    std::mutex guard_;
    std::array<cookie, 32> cookies_;
    using plain_service = test::bare_service<std::function<void()>>;
    std::shared_ptr<plain_service> plain_ = std::make_shared<plain_service>();
    waited_for waited_for_;
    threading::recursive_shared_mutex lock_;
    std::uint64_t guarded_by_lock_ = 0;
};

TEST(Stress, RegistrationsDropsBroadcastsAndUpgradesOnSeveralThreads) {
    const auto all = std::make_unique<commotion>();
    {
        std::vector<std::jthread> running;
        for (unsigned seed = 1; seed <= threads; ++seed)
            running.emplace_back([&all, seed] { all->run(seed); });
    }
    EXPECT_GT(all->calls, 1000u);
    EXPECT_GT(all->refused_upgrades, 100u);
}

} // namespace
} // namespace zel::event_routing::impl
