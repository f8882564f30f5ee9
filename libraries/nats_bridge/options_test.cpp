#include "framework/exceptions/exceptions.h"
#include "framework/serialization/json_text.h"

#include <event_routing/nats_bridge.h>

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <json/value.h>

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
    EXPECT_EQ(failure_of([](auto& o) { o.most_waiting = 0; }),
              "Option most_waiting: at least one event has to find room.");
}

TEST(BridgeOptions, ComeFromADocumentWhoseMistakesAreRefusedWithTheirPlace) {
    const auto options = options_from_json(R"({"realm": "plant", "host": "press", "servers": ["a"],
        "import_events": [{"pattern": "a.*", "channel": "c"}], "when_full": "drop_oldest",
        "serve_requests": [{"pattern": "b", "mode": "unique"}], "drain_limit": 7})");
    EXPECT_EQ(options.servers, std::vector<std::string>{"a"});
    EXPECT_EQ(options.import_events.at(0).channel, "c");
    EXPECT_EQ(options.when_full, full_row::drop_oldest);
    EXPECT_EQ(options.serve_requests.at(0).mode, request_mode::unique);
    EXPECT_EQ(options.drain_limit.count(), 7);
    const auto failure_of = [](const std::string& more) {
        try {
            options_from_json(R"({"realm": "plant", "host": "press", )" + more + "}");
        } catch (const exceptions::error& failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_EQ(failure_of(R"("import_event": [])"),
              "Configuration, import_event: there is no such member.");
    EXPECT_EQ(
        failure_of(R"("serve_requests": [{"pattern": "a"}, {"pattern": "b", "mode": "all"}])"),
        "Configuration, serve_requests[1].mode: one of \"owner\", \"any\", \"unique\" is "
        "expected.");
    EXPECT_EQ(failure_of(R"("send_snowballs": [{}])"),
              "Configuration, send_snowballs[0]: the member 'pattern' is missing.");
    EXPECT_EQ(failure_of(R"("servers": "a")"), "Configuration, servers: an array is expected.");
    EXPECT_EQ(failure_of(R"("most_waiting": -1)"),
              "Configuration, most_waiting: a whole number from 0 on is expected.");
    EXPECT_EQ(failure_of(R"("export_events": [{"pattern": "a*"}])"),
              "Option export_events[0].pattern: 'a*' has a '*' elsewhere than as the last name.");
    EXPECT_NE(failure_of(""), "") << "no document";
}

TEST(BridgeOptions, HaveTheMembersOfTheSchema) {
    std::ifstream file(BRIDGE_SCHEMA);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const auto properties = serialization::json_from_text(text)["properties"];
    // Of one that does not exist the name is refused, of others the value.
    for (const auto& name : properties.getMemberNames()) {
        Json::Value document;
        document["realm"] = document["host"] = "a";
        document[name] = false;
        try {
            options_from_json(serialization::json_to_text(document));
            FAIL() << name;
        } catch (const exceptions::error& failure) {
            EXPECT_NE(std::string(failure.what()).find("expected"), std::string::npos)
                << failure.what();
        }
    }
    EXPECT_EQ(properties.size(), 20U) << "a member that is read has to be described";
}

} // namespace
} // namespace zel::event_routing::nats
