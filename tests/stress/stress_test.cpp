// Several threads do everything at once: broadcast, ask, send snowballs, register, drop from
// inside and outside, watch, merge events, end services. The sanitizers watch.
#include "framework/exceptions/exceptions.h"
#include "tests/support/routing.h"
#include "tests/support/stress.h"

#include <event_routing/drop.h>
#include <event_routing/exceptions.h>
#include <event_routing/pending_events.h>

namespace zel::event_routing::impl {
namespace {

using test::random_number;
using test::registration;
using service = std::shared_ptr<EventRoutingImpl>;

// Asynchronous parts that wait for each other's removal are a knot of their user, so
// nothing that one of them runs drops what is not its own.
thread_local bool inside_asynchronous_part = false;
// Likewise, what runs inside of requests and snowballs drops only its own cookie.
thread_local int depth = 0;

class commotion : public test::commotion {
public:
    // Nothing runs afterwards.
    void finish() {
        for (auto& h : handlers_)
            replace(h, nullptr);
        for (auto& m : monitors_)
            replace(m, nullptr);
        for (auto& a : answering_)
            replace(a, nullptr);
        end_service();
    }

    std::atomic<std::uint64_t> late_calls{0};

private:
    bool has_seen_everything() const override {
        return calls_ > 1000 && asynchronous_calls_ > 100 && told_ > 100 &&
               refused_upgrades_ > 100 && flushed_ > 10 && waited_for_ > 10 && answers_ > 100 &&
               refusals_ > 100 && doubles_ > 10;
    }

    void step(unsigned kind, random_number& random) override {
        if (random() % 2 == 0)
            step_of_events(kind, random);
        else
            step_of_requests(kind, random);
    }

    void step_of_events(unsigned kind, random_number& random) {
        const auto events = held_in(service_);
        if (kind < 3)
            replace(handlers_[random() % handlers_.size()], listen(events, random));
        else if (kind == 3)
            drop_from_outside(handlers_[random() % handlers_.size()], random);
        else if (kind == 4)
            flushed_ += flush_cumulative_event(*events, paths(random));
        else if (kind == 5)
            upgrade();
        else if (kind == 6)
            replace(monitors_[random() % monitors_.size()],
                    random() % 4 == 0 ? nullptr : watch(*events, random));
        else if (kind == 7)
            events->BroadcastCumulativeEvent({false, std::int64_t(random() % 2000)}, paths(random),
                                             nullptr, {}, nullptr);
        else if (kind == 8 && random() % 50 == 0)
            end_service();
        else if (kind == 9)
            events->BroadcastEvent(paths(random), nullptr,
                                   {{"synchronous", std::int64_t(random() % 3) - 1}}, nullptr);
        else if (kind == 10)
            events->GetEventHandlers();
        else
            events->BroadcastEvent(paths(random), nullptr, {}, nullptr);
    }

    void step_of_requests(unsigned kind, random_number& random) {
        auto& place = answering_[random() % answering_.size()];
        const auto path = any_of(random, {"a", "a.b", "a.b.c", "b"});
        if (kind < 2)
            replace(place, answer(random));
        else if (kind < 4)
            replace(place, nullptr);
        else if (kind < 6)
            roll(path);
        else
            ask(path, kind < 8 ? routing_parameters{{"prefer_local_request_handlers", 1}}
                               : routing_parameters());
    }

    void ask(const std::string& path, const routing_parameters& parameters = {}) {
        request_answer response, error_response;
        try {
            answers_ += requests_->SendRequest(path, nullptr, response, error_response, parameters);
        } catch (const request_was_not_processed&) {
            ++refusals_;
        } catch (const multiple_request_handlers&) {
            ++doubles_;
        }
    }
    void roll(const std::string& path) {
        snowball_result response, error_response;
        snowballs_->SendSnowball(path, nullptr, response, error_response, {});
    }

    // Within a limit, at times, and then all the same.
    void drop_from_outside(std::shared_ptr<registration>& place, random_number& random) {
        const auto former = put(place, std::shared_ptr<registration>());
        auto mine = former ? former->take() : nullptr;
        if (!mine)
            return;
        if (random() % 2 == 0 && drop_within(mine, {false, std::int64_t(random() % 200)})) {
            ++waited_for_;
            drop_and_wait(mine);
        }
        former->state->ended = mine == nullptr;
        mine.reset();
        former->state->dropped = true;
    }

    static std::string any_of(random_number& random, std::initializer_list<const char*> all) {
        return all.begin()[random() % all.size()];
    }
    static std::string paths(random_number& random) {
        return any_of(random, {"a", "a.b", "a.b.c", "b.a"}) + ";" +
               any_of(random, {"a.b", "c.c", ""});
    }

    std::shared_ptr<registration> listen(const service& events, random_number& random) {
        const auto made = std::make_shared<registration>();
        const auto kind = random();
        synchronous_event_part first = [=, this, again = std::weak_ptr(events),
                                        state = made->state](const std::string& path, auto&&...) {
            ++calls_;
            late_calls += state->ended;
            const auto nested = again.lock();
            if (kind % 8 == 0 && !inside_asynchronous_part)
                replace(handlers_[kind / 8 % handlers_.size()], nullptr); // itself at times
            else if (kind % 8 == 1 && path != "c.c" && nested)
                nested->BroadcastEvent("c.c", nullptr, {}, nullptr);
            return kind % 8 != 2;
        };
        asynchronous_event_part second = [=, this, self = std::weak_ptr(made),
                                          state = made->state](auto&&...) {
            ++asynchronous_calls_;
            late_calls += state->is_late();
            inside_asynchronous_part = true;
            const auto own = self.lock();
            if (kind % 16 == 3 && own)
                own->drop();
            inside_asynchronous_part = false;
            late_calls += state->is_late();
        };
        const auto parts = kind / 64 % 4; // both, one of them, or none
        const auto queue = kind / 256 % 2 ? events->CreateTaskQueue() : nullptr;
        made->hold(events->RegisterEventHandler(
            queue, any_of(random, {"a", "a.*", "a.b.*", "b.*", "c.c", "*"}),
            parts < 2 ? first : nullptr, parts % 2 ? nullptr : second, "handler"));
        return made;
    }

    std::shared_ptr<registration> answer(random_number& random) {
        const auto made = std::make_shared<registration>();
        const auto kind = random();
        const auto handler = [=, this, self = std::weak_ptr(made), state = made->state](auto&&...) {
            const auto own = self.lock();
            late_calls += state->is_late();
            ++depth;
            if (kind % 8 == 0 && own)
                own->drop();
            else if (kind % 8 == 1 && depth < 3)
                ask("a.b.c");
            else if (kind % 8 == 2 && depth < 3)
                roll("b");
            --depth;
            return kind % 8 == 3;
        };
        const auto path = any_of(random, {"a", "a.*", "a.b", "a.b.*", "*", "b"});
        const auto what = kind / 64 % 5;
        made->hold(
            what == 0   ? requests_->RegisterRequestRedirectionHandler(path, handler, "handler")
            : what == 1 ? requests_->RegisterRequestFallbackHandler(path, handler, "handler")
            : what == 2 ? snowballs_->RegisterSnowballHandler(path, handler, "handler")
                        : requests_->RegisterRequestHandler(path, int(kind % 3), handler, "h"));
        return made;
    }

    std::shared_ptr<registration> watch(EventRoutingImpl& events, random_number& random) {
        const auto made = std::make_shared<registration>();
        made->hold(events.RegisterMonitorHandler([this, drops = random() % 8 == 0,
                                                  self = std::weak_ptr(made),
                                                  state = made->state](auto&&...) {
            ++told_;
            late_calls += state->is_late();
            const auto own = self.lock();
            if (drops && own)
                own->drop();
        }));
        return made;
    }

    void end_service() {
        put(service_, std::make_shared<EventRoutingImpl>())->EndAndWaitForHandlers();
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
            ++refused_upgrades_;
        }
        EXPECT_EQ(guarded_by_lock_, before);
    }

    std::atomic<std::uint64_t> calls_{0}, asynchronous_calls_{0}, told_{0}, refused_upgrades_{0},
        flushed_{0}, waited_for_{0}, answers_{0}, refusals_{0}, doubles_{0};
    service service_ = std::make_shared<EventRoutingImpl>();
    std::array<std::shared_ptr<registration>, 32> handlers_;
    std::array<std::shared_ptr<registration>, 4> monitors_;
    const std::shared_ptr<EventRoutingImpl> announcing_ = std::make_shared<EventRoutingImpl>();
    const std::shared_ptr<RequestRoutingImpl> requests_ =
        std::make_shared<RequestRoutingImpl>(announcing_);
    const std::shared_ptr<SnowballRoutingImpl> snowballs_ = std::make_shared<SnowballRoutingImpl>();
    const cookie listener_ = announcing_->RegisterEventHandler(
        nullptr, "event_routing.request_handler.registered",
        [this](auto&&...) { return ask("b", without_failure), true; }, // while that is registered
        nullptr, "listener");
    std::array<std::shared_ptr<registration>, 24> answering_;
    threading::recursive_shared_mutex lock_;
    std::uint64_t guarded_by_lock_ = 0;
};

TEST(Stress, EverythingAtOnceOnSeveralThreads) {
    const auto all = std::make_unique<commotion>();
    all->run();
    all->finish();
    EXPECT_EQ(all->late_calls, 0u) << "after a drop";
}

} // namespace
} // namespace zel::event_routing::impl
