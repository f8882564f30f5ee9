#include "framework/exceptions/exceptions.h"

#include <event_routing/nats_bridge.h>

#include <functional>
#include <gtest/gtest.h>

namespace zel::event_routing::nats {
namespace {

TEST(BridgeOptions, AreRefusedWithThePlaceOfTheMistake) {
    const auto failure_of = [](const std::function<void(bridge_options&)>& spoil) {
        bridge_options options;
        options.realm = "plant";
        options.host = "press";
        options.export_events = {{"a.*", ""}, {"a.*", "other"}};
        options.import_events = {{"b.c", ""}};
        spoil(options);
        try {
            check(options);
        } catch (const exceptions::error& failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_EQ(failure_of([](auto&) {}), "");
    EXPECT_EQ(failure_of([](auto& o) { o.realm.clear(); }), "Option realm: a name is missing.");
    EXPECT_EQ(failure_of([](auto& o) { o.servers.push_back(""); }),
              "Option servers[1]: the address is empty.");
    EXPECT_EQ(failure_of([](auto& o) {
                  o.import_events.push_back({"a*", ""});
              }),
              "Option import_events[1].pattern: 'a*' has a '*' elsewhere than as the last name.");
    EXPECT_EQ(failure_of([](auto& o) {
                  o.export_events.push_back({"a.b", "other"});
              }),
              "Option export_events[2].pattern: 'a.b' overlaps with 'a.*' of export_events[1], so "
              "that events would cross twice.");
    EXPECT_EQ(failure_of([](auto& o) { o.import_events[0].pattern = "a;b"; }),
              "Option import_events[0].pattern: no broadcast reaches 'a;b'.");
    EXPECT_EQ(failure_of([](auto& o) { o.key_file = "key.pem"; }),
              "Option certificate_file: a certificate and its key belong together.");
    EXPECT_EQ(failure_of([](auto& o) {
                  o.serve_requests = {{"a.*"}, {"*"}};
              }),
              "Option serve_requests[1].pattern: '*' overlaps with 'a.*' of serve_requests[0], so "
              "that two could answer.");
    EXPECT_EQ(failure_of([](auto& o) {
                  o.ask_requests = {{"a", std::chrono::milliseconds(0)}};
              }),
              "Option ask_requests[0].time_out: it must be positive.");
    EXPECT_EQ(failure_of([](auto& o) { o.import_events[0].channel = "event_routing.bridge"; }),
              "Option import_events[0].channel: 'event_routing.bridge' is the bridge's own.");
    EXPECT_EQ(failure_of([](auto& o) { o.most_waiting = 0; }),
              "Option most_waiting: at least one event has to find room.");
}

} // namespace
} // namespace zel::event_routing::nats
