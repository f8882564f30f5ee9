// Two bridges of one process, for what a handler does that knows which of the two it serves.
#include "libraries/nats_bridge/connection.h"
#include "libraries/nats_bridge/envelope.h"
#include "libraries/nats_bridge/subject.h"
#include "libraries/nats_bridge/task_runner.h"
#include "tests/bridge/host_process.h"

#include <event_routing/client.h>
#include <event_routing/nats_bridge.h>
#include <framework/serialization/payload.h>

#include <platform/event.h>
#include <platform/process.h>

#include <atomic>

namespace zel::event_routing::nats {
namespace {

using namespace std::chrono_literals;

class BridgesOfOneProcess : public testing::Test {
protected:
    void SetUp() override {
        REQUIRE_NATS_SERVER();
        server_.start();
        serialization::register_data_type<std::string>();
    }

    bridge_options options(const std::string& host) const {
        bridge_options options;
        options.servers = {"nats://127.0.0.1:" + server_.port()};
        options.realm = "test";
        options.host = host;
        return options;
    }

    server server_;
    const std::shared_ptr<IModule> module_ = get_module();
};

TEST_F(BridgesOfOneProcess, ConnectUnderNamesThatWouldBeCommandsToTheServer) {
    bridge named(options("a \"b\"\r\nPUB er.test 1\r\n"));
    EXPECT_TRUE(named.wait_until_ready(60s));
}

// It has run, so the sender must not read that nobody was there.
TEST_F(BridgesOfOneProcess, TellAHandlerWhoseOwnRequestNobodyAnswersAsOneThatFailed) {
    const auto requests = get_request_routing(*module_);
    const auto snowballs = get_snowball_routing(*module_);
    const auto ask_on = [&](const routing_parameters& about) {
        request_answer response, error_response;
        if (about.contains(parameter::origin))
            requests->SendRequest("nobody.there", nullptr, response, error_response, {});
        return false;
    };
    const auto request_handler = requests->RegisterRequestHandler(
        "work.*", 0, [&](auto&, auto&, auto&, auto&, auto& about) { return ask_on(about); }, "");
    const auto snowball_handler = snowballs->RegisterSnowballHandler(
        "work.*", [&](auto&, auto&, auto&, auto&, auto& about) { ask_on(about); }, "");
    bridge_options asked = options("serving");
    asked.serve_requests = {{"work.*", request_mode::any}};
    asked.serve_snowballs = {{"work.*"}};
    bridge serving(asked);
    bridge_options asks = options("asking");
    asks.ask_requests = {{"work.*", 60s}};
    asks.send_snowballs = {{"work.*", 60s}};
    asks.expected_hosts = {"serving"};
    bridge asking(asks);
    ASSERT_TRUE(serving.wait_until_ready(60s) && asking.wait_until_ready(60s));

    request_answer response, error_response;
    EXPECT_THROW(requests->SendRequest("work.a", nullptr, response, error_response, {}),
                 remote_handler_failed);
    snowball_result so_far = serialization::make_payload(std::string("so far"));
    EXPECT_THROW(snowballs->SendSnowball("work.a", nullptr, so_far, error_response, {}),
                 remote_handler_failed);
    EXPECT_TRUE(so_far) << "what was added before stays";
}

TEST_F(BridgesOfOneProcess, HearOfEachOtherAlsoWhereOnlyEventsCross) {
    bridge_options expecting = options("expecting");
    expecting.expected_hosts = {"expected"};
    bridge first(expecting);
    bridge second(options("expected"));
    EXPECT_TRUE(first.wait_until_ready(60s));
}

TEST_F(BridgesOfOneProcess, ClaimAPatternThatAnOwnerMayStillRefuse) {
    const bridge_options others = options("others");
    connection network(others, "others#1", sending::at_once, [](bool) {});
    platform::event asked{platform::reset_mode::manual, false};
    std::string answer_to;
    network.subscribe(subject_of("test", "h", "work.*", "owner"), [&](const auto& message) {
        if (!answer_to.empty())
            return; // they ask it once more after the first has been answered
        answer_to = message.answer_to;
        network.publish(answer_to, envelope_bytes(claim_envelope{"refused#1", 1}));
        asked.set();
    });
    while (!network.flush(60s)) { // not connected yet
    }
    bridge_options claiming = options("claiming");
    claiming.serve_requests = {{"work.*", request_mode::owner}};
    bridge claims(claiming);
    asked.wait();
    EXPECT_FALSE(claims.wait_until_ready(500ms)) << "one that gives way is not the owner";
    network.publish(answer_to, envelope_bytes(claim_envelope{"owner#1", 0}));
    EXPECT_THROW((void)claims.wait_until_ready(60s), exceptions::error);
    network.close(60s);
}

TEST_F(BridgesOfOneProcess, TellOfWhatWasNotSentBeforeTheyEnd) {
    server_.kill();
    const auto events = get_event_routing(*module_);
    std::vector<std::int64_t> told;
    const auto listener = events->RegisterEventHandler(
        nullptr, lost_event,
        [&](auto&, auto&, auto& about) {
            told = {number_or(about, parameter::lost_from, 0),
                    number_or(about, parameter::lost_to, 0)};
            return true;
        },
        nullptr, "");
    {
        bridge_options sending = options("sending");
        sending.export_events = {{"news", ""}};
        sending.drain_limit = 0ms;
        bridge sends(sending);
        for (int i = 0; i < 3; ++i)
            events->BroadcastEvent("news", nullptr, {}, nullptr);
    }
    EXPECT_EQ(told, (std::vector<std::int64_t>{1, 3}));
}

TEST_F(BridgesOfOneProcess, EndInTimeAndAreNotEndedByWhatHandlersThrow) {
    const auto events = get_event_routing(*module_);
    platform::event is_first{platform::reset_mode::manual, false};
    platform::event go{platform::reset_mode::manual, false};
    std::atomic<int> heard{0};
    const auto handler = events->RegisterEventHandler(
        nullptr, "news",
        [&](auto&, auto&, auto& about) {
            if (!about.contains(parameter::origin))
                return true;
            if (heard++ == 0)
                throw 5; // of no kind that anybody knows
            is_first.set();
            go.wait();
            platform::sleep_for(1ms);
            return true;
        },
        nullptr, "");
    bridge_options sending = options("sending");
    sending.export_events = {{"news", ""}};
    bridge_options hearing = options("hearing");
    hearing.import_events = {{"news", ""}};
    hearing.drain_limit = 0ms;
    constexpr int all = 20'000;
    bridge sends(sending);
    auto hears = std::make_unique<bridge>(hearing);
    ASSERT_TRUE(sends.wait_until_ready(60s) && hears->wait_until_ready(60s));
    // Whoever else broadcasts on the service of the tasks does no harm.
    const auto own = get_named_event_routing(*module_, task_service);
    for (const auto& [path, description] : own->GetEventHandlers())
        own->BroadcastEvent(path, nullptr, {}, nullptr);
    for (int i = 0; i < all; ++i)
        events->BroadcastEvent("news", nullptr, {}, nullptr);
    is_first.wait();
    go.set();
    hears.reset();
    EXPECT_LT(heard, all) << "it has not waited for the whole row";
}

} // namespace
} // namespace zel::event_routing::nats
