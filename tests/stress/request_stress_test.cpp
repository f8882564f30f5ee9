// Several threads ask, send snowballs, register and drop, from inside and outside. The
// sanitizers watch. Runs for a few seconds, or for as many as
// EVENT_ROUTING_STRESS_SECONDS says.
#include "framework/event_routing/src/event_routing/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/snowball_routing_impl.h"

#include <event_routing/exceptions.h>

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
    return std::chrono::seconds(text ? std::max(1, std::atoi(text)) : 2);
}

using cookie = std::shared_ptr<tasklib::keep_registered>;
using random_number = std::minstd_rand;

// Calls that wait for each other's removal are a knot of their user, so what runs inside
// of one drops only its own cookie.
thread_local int depth = 0;

struct registration {
    std::mutex guard;
    cookie held;
    std::atomic<bool> dropped{false}; // and the drop has returned
    const std::vector<int> alive = std::vector<int>(16, 7);

    void hold(cookie taken) {
        std::lock_guard inside(guard);
        held = std::move(taken);
    }
    bool drop() {
        std::unique_lock inside(guard);
        auto mine = std::move(held);
        inside.unlock();
        return mine != nullptr;
    }
};

class commotion {
public:
    commotion() {
        listener_ = events_->RegisterEventHandler(
            nullptr, "event_routing.request_handler.registered",
            [this](auto&&...) {
                ask("b", {{"supress_not_processed_exception", 1}}); // while that is registered
                return true;
            },
            nullptr, "listener");
    }

    void run(unsigned seed) {
        random_number random(seed);
        while (std::chrono::steady_clock::now() < end_)
            step(random() % 8, random);
    }
    void finish() {
        for (auto& place : places_)
            put(place, nullptr);
    }

    std::atomic<std::uint64_t> calls{0}, late_calls{0}, answers{0}, refusals{0}, doubles{0};

private:
    void step(unsigned kind, random_number& random) {
        auto& place = places_[random() % places_.size()];
        if (kind == 0)
            put(place, add(random));
        else if (kind == 1)
            put(place, nullptr);
        else if (kind == 2)
            send_snowball(any_path(random));
        else
            ask(any_path(random), kind == 3
                                      ? routing_parameters{{"prefer_local_request_handlers", 1}}
                                      : routing_parameters());
    }

    static std::string any_path(random_number& random) {
        return std::array{"a", "a.b", "a.b.c", "b"}[random() % 4];
    }

    void ask(const std::string& path, const routing_parameters& parameters) {
        request_answer response, error_response;
        try {
            answers += requests_->SendRequest(path, nullptr, response, error_response, parameters);
        } catch (const request_was_not_processed&) {
            ++refusals;
        } catch (const multiple_request_handlers&) {
            ++doubles;
        }
    }
    void send_snowball(const std::string& path) {
        snowball_result response, error_response;
        snowballs_->SendSnowball(path, nullptr, response, error_response, {});
    }

    std::shared_ptr<registration> add(random_number& random) {
        const auto made = std::make_shared<registration>();
        const auto kind = random();
        const auto called = [=, this, self = std::weak_ptr(made), state = made.get()](auto&&...) {
            ++calls;
            const auto own = self.lock();
            late_calls += state->dropped || state->alive[15] != 7;
            ++depth;
            if (kind % 8 == 0 && own)
                own->drop();
            else if (kind % 8 == 1 && depth < 3)
                ask("a.b.c", {});
            else if (kind % 8 == 2 && depth < 3)
                send_snowball("b");
            --depth;
            return kind % 8 == 3;
        };
        // The callable owns the registration's state, so that a late call would be seen.
        const auto handler = [called,
                              state = std::shared_ptr<const std::vector<int>>(made, &made->alive)](
                                 auto&&... arguments) { return called(arguments...); };
        const auto path = std::array{"a", "a.*", "a.b", "a.b.*", "*", "b"}[kind / 8 % 6];
        const auto what = kind / 64 % 5;
        if (what == 0)
            made->hold(requests_->RegisterRequestRedirectionHandler(path, handler, "handler"));
        else if (what == 1)
            made->hold(requests_->RegisterRequestFallbackHandler(path, handler, "handler"));
        else if (what == 2)
            made->hold(snowballs_->RegisterSnowballHandler(path, handler, "handler"));
        else
            made->hold(requests_->RegisterRequestHandler(path, int(kind % 3), handler, "handler"));
        return made;
    }

    void put(std::shared_ptr<registration>& place, std::shared_ptr<registration> fresh) {
        std::unique_lock inside(guard_);
        place.swap(fresh);
        inside.unlock();
        if (fresh && fresh->drop())
            fresh->dropped = true;
    }

    const std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + duration();
    const std::shared_ptr<EventRoutingImpl> events_ = std::make_shared<EventRoutingImpl>();
    const std::shared_ptr<RequestRoutingImpl> requests_ =
        std::make_shared<RequestRoutingImpl>(events_);
    const std::shared_ptr<SnowballRoutingImpl> snowballs_ = std::make_shared<SnowballRoutingImpl>();
    cookie listener_;
    std::mutex guard_; // of the places
    std::array<std::shared_ptr<registration>, 24> places_;
};

TEST(RequestStress, EverythingAtOnceOnSeveralThreads) {
    const auto all = std::make_unique<commotion>();
    {
        std::vector<std::jthread> running;
        for (unsigned seed = 1; seed <= 4; ++seed)
            running.emplace_back([&all, seed] { all->run(seed); });
    }
    all->finish();
    EXPECT_EQ(all->late_calls, 0u) << "after a drop";
    EXPECT_GT(all->calls, 1000u);
    EXPECT_GT(all->answers, 100u);
    EXPECT_GT(all->refusals, 100u);
    EXPECT_GT(all->doubles, 10u);
}

} // namespace
} // namespace zel::event_routing::impl
