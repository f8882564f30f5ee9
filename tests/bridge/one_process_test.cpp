// Two bridges of one process, for what a handler does that knows which of the two it serves.
#include "tests/bridge/host_process.h"

#include <event_routing/client.h>
#include <event_routing/nats_bridge.h>
#include <framework/serialization/payload.h>

#include <optional>

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

} // namespace
} // namespace zel::event_routing::nats
