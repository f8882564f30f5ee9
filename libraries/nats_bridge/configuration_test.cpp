#include "libraries/nats_bridge/configuration.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/json_text.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <utility>

namespace zel::event_routing::nats {
namespace {

const std::string file = testing::TempDir() + "event_routing_configuration_test.json";

bridge_options configuration(const std::string& content) {
    std::ofstream(file) << content;
    return read_configuration(file);
}

TEST(BridgeConfiguration, IsReadIntoTheOptions) {
    const auto options = configuration(R"({"realm": "plant", "host": "press", "servers": ["a", "b"],
        "export_events": [{"pattern": "p.*"}, {"pattern": "p.*", "channel": "ui"}],
        "ask_requests": [{"pattern": "q", "time_out_milliseconds": 70}],
        "serve_requests": [{"pattern": "r", "mode": "any"}, {"pattern": "s"}],
        "when_full": "drop_oldest", "most_waiting": 9, "drain_limit_milliseconds": 0})");
    EXPECT_EQ(options.servers, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(options.export_events.at(1).channel, "ui");
    EXPECT_EQ(options.ask_requests.at(0).time_out.count(), 70);
    EXPECT_EQ(options.serve_requests.at(0).mode, request_mode::any);
    EXPECT_EQ(options.when_full, full_row::drop_oldest);
    EXPECT_EQ(options.most_waiting, 9U);
    EXPECT_EQ(options.most_waiting_requests, bridge_options().most_waiting_requests);
    EXPECT_EQ(options.drain_limit.count(), 0);
}

TEST(BridgeConfiguration, IsRefusedWithTheFileAndThePlaceOfTheMistake) {
    const auto failure_of = [](const std::string& members) {
        try {
            configuration(R"({"realm": "plant", "host": "press")" + members + "}");
        } catch (const exceptions::error& failure) {
            const std::string text = failure.what();
            const std::string begin = "The configuration " + file + ": ";
            EXPECT_TRUE(text.starts_with(begin)) << text;
            return text.substr(begin.size());
        }
        return std::string();
    };
    for (const auto& [members, failure] : std::vector<std::pair<std::string, std::string>>{
             {"", ""},
             {R"(, "colour": 1)", "Option colour: there is no such option."},
             {R"(, "import_events": [{"pattern": "a"}, {"pattern": "b", "path": ""}])",
              "Option import_events[1].path: there is no such option."},
             {R"(, "import_events": [{"pattern": "a"}, {"channel": "b"}])",
              "Option import_events[1].pattern: it is missing."},
             {R"(, "import_events": [{"pattern": "a"}, {"pattern": "*"}])",
              "Option import_events[1].pattern: '*' overlaps with 'a' of import_events[0], so that "
              "events would cross twice."},
             {R"(, "export_events": ["a"])", "Option export_events[0]: an object is expected."},
             {R"(, "export_events": {})", "Option export_events: an array is expected."},
             {R"(, "servers": [4222])", "Option servers[0]: a text is expected."},
             {R"(, "servers": [])", "Option servers: there is none."},
             {R"(, "serve_requests": [{"pattern": "a", "mode": "all"}])",
              "Option serve_requests[0].mode: \"owner\" or \"any\" is expected."},
             {R"(, "drain_limit_milliseconds": -1)", "Option drain_limit_milliseconds: a whole "
                                                     "number from 0 to 1000000000000 is expected."},
             {R"(, "most_waiting": 1.5)",
              "Option most_waiting: a whole number from 1 to 9007199254740992 is expected."},
             {R"(, "when_full": null)",
              "Option when_full: \"drop_newest\" or \"drop_oldest\" is expected."}})
        EXPECT_EQ(failure_of(members), failure) << members;
    EXPECT_NE(failure_of(R"(, "host": "again")").find("Duplicate key: 'host'"), std::string::npos);
    EXPECT_NE(failure_of("}").find("Line 1, Column"), std::string::npos);
    try {
        read_configuration(testing::TempDir());
        ADD_FAILURE() << "a folder was read";
    } catch (const exceptions::error& failure) {
        EXPECT_EQ(failure.what(), "The configuration " + testing::TempDir() +
                                      ": it cannot be read: Is a directory");
    }
}

// Takes out what is for people, and defaults, which the header has.
void strip(Json::Value& schema) {
    for (const char* text : {"description", "default", "title"})
        schema.removeMember(text);
    for (auto& member : schema["properties"])
        strip(member);
    if (schema["properties"].empty())
        schema.removeMember("properties");
    if (schema.isMember("items"))
        strip(schema["items"]);
}

TEST(BridgeConfiguration, IsWhatTheDocumentedSchemaDescribes) {
    std::ostringstream content;
    content << std::ifstream(CONFIGURATION_SCHEMA).rdbuf();
    Json::Value documented = serialization::json_from_text(content.str());
    const Json::Value properties = documented["properties"];
    strip(documented);
    documented.removeMember("$schema");
    EXPECT_EQ(documented.toStyledString(), configuration_schema().toStyledString());

    const bridge_options defaults;
    EXPECT_EQ(properties["most_waiting"]["default"].asUInt64(), defaults.most_waiting);
    EXPECT_EQ(properties["most_waiting_bytes"]["default"].asUInt64(), defaults.most_waiting_bytes);
    EXPECT_EQ(properties["drain_limit_milliseconds"]["default"].asInt64(),
              defaults.drain_limit.count());
    EXPECT_EQ(properties["servers"]["default"][0].asString(), defaults.servers.at(0));
}

TEST(BridgeDescription, SaysWhatWouldCrossAndWhichServersCanBeOverheardAndNoPasswords) {
    bridge_options options;
    options.realm = "plant";
    options.host = "press \"4\"";
    options.servers = {
        "nats://me:p@ss@127.0.0.1:4222",   "localhost",        "nats://[::1]:1", "tls://far",
        "nats://me:p@ss@127.example:4222", "localhost.example"};
    options.export_events = {{"a.*", ""}};
    options.import_events = {{"b\r\n", "ui"}};
    options.ask_requests = {{"c", std::chrono::milliseconds(7)}};
    options.serve_requests = {{"*", request_mode::any}};
    EXPECT_EQ(describe(options), R"(host "press \"4\"" of realm "plant"
server nats://127.0.0.1:4222
server localhost
server nats://[::1]:1
server tls://far
server nats://127.example:4222, not encrypted, and beyond this machine
server localhost.example, not encrypted, and beyond this machine
out event "a.*" as er.plant.e.=.a.>
in  event "b\r\n" of channel "ui" as er.plant.e.ui.b=0D=0A
out request "c", answered within 7 ms, as er.plant.r.=.c
in  request "*", as one of any number, as er.plant.r.=.>
)");
}

} // namespace
} // namespace zel::event_routing::nats
