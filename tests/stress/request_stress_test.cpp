// Several threads ask, send snowballs, register and drop, from inside and outside. The
// sanitizers watch.
#include "tests/support/routing.h"
#include "tests/support/stress.h"

#include <event_routing/exceptions.h>

namespace zel::event_routing::impl {
namespace {

using test::random_number;
using test::registration;

// Calls that wait for each other's removal are a knot of their user, so what runs inside
// of one drops only its own cookie.
thread_local int depth = 0;

class commotion : public test::commotion {
public:
    void finish() {
        for (auto& place : places_)
            replace(place, nullptr);
    }

    std::atomic<std::uint64_t> late_calls{0};

private:
    bool has_seen_everything() const override {
        return calls_ > 1000 && answers_ > 100 && refusals_ > 100 && doubles_ > 10;
    }

    void step(unsigned kind, random_number& random) override {
        auto& place = places_[random() % places_.size()];
        const auto path = std::array{"a", "a.b", "a.b.c", "b"}[random() % 4];
        if (kind < 2)
            replace(place, add(random));
        else if (kind < 4)
            replace(place, nullptr);
        else if (kind < 6)
            send_snowball(path);
        else if (kind < 8)
            ask(path, {{"prefer_local_request_handlers", 1}});
        else
            ask(path);
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
    void send_snowball(const std::string& path) {
        snowball_result response, error_response;
        snowballs_->SendSnowball(path, nullptr, response, error_response, {});
    }

    std::shared_ptr<registration> add(random_number& random) {
        const auto made = std::make_shared<registration>();
        const auto kind = random();
        const auto handler = [=, this, self = std::weak_ptr(made), state = made->state](auto&&...) {
            ++calls_;
            const auto own = self.lock();
            late_calls += state->is_late();
            ++depth;
            if (kind % 8 == 0 && own)
                own->drop();
            else if (kind % 8 == 1 && depth < 3)
                ask("a.b.c");
            else if (kind % 8 == 2 && depth < 3)
                send_snowball("b");
            --depth;
            return kind % 8 == 3;
        };
        const auto path = std::array{"a", "a.*", "a.b", "a.b.*", "*", "b"}[kind / 8 % 6];
        const auto what = kind / 64 % 5;
        made->hold(
            what == 0   ? requests_->RegisterRequestRedirectionHandler(path, handler, "handler")
            : what == 1 ? requests_->RegisterRequestFallbackHandler(path, handler, "handler")
            : what == 2 ? snowballs_->RegisterSnowballHandler(path, handler, "handler")
                        : requests_->RegisterRequestHandler(path, int(kind % 3), handler, "h"));
        return made;
    }

    std::atomic<std::uint64_t> calls_{0}, answers_{0}, refusals_{0}, doubles_{0};
    const std::shared_ptr<EventRoutingImpl> events_ = std::make_shared<EventRoutingImpl>();
    const std::shared_ptr<RequestRoutingImpl> requests_ =
        std::make_shared<RequestRoutingImpl>(events_);
    const std::shared_ptr<SnowballRoutingImpl> snowballs_ = std::make_shared<SnowballRoutingImpl>();
    const cookie listener_ = events_->RegisterEventHandler(
        nullptr, "event_routing.request_handler.registered",
        [this](auto&&...) { return ask("b", without_failure), true; }, // while that is registered
        nullptr, "listener");
    std::array<std::shared_ptr<registration>, 24> places_;
};

TEST(RequestStress, EverythingAtOnceOnSeveralThreads) {
    const auto all = std::make_unique<commotion>();
    all->run();
    all->finish();
    EXPECT_EQ(all->late_calls, 0u) << "after a drop";
}

} // namespace
} // namespace zel::event_routing::impl
