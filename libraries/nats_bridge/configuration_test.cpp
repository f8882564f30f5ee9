#include "libraries/nats_bridge/configuration.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/json_text.h"

#include <platform/process.h>

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <utility>

namespace zel::event_routing::nats {
namespace {

class BridgeConfiguration : public testing::Test {
protected:
    ~BridgeConfiguration() override { std::remove(file_.c_str()); }

    bridge_options read(const std::string& members) {
        std::ofstream(file_) << R"({"realm": "plant", "host": "press")" << members << "}";
        return read_configuration(file_);
    }

    const std::string file_ =
        testing::TempDir() + "bridge_" + std::to_string(platform::process_id()) + ".json";
};

TEST_F(BridgeConfiguration, IsRefusedWithTheFileAndThePlaceOfTheMistake) {
    using mistakes = std::vector<std::pair<std::string, std::string>>;
    const auto failure_of = [&](const std::string& members) {
        try {
            read(members);
            return std::string();
        } catch (const exceptions::error& failure) {
            return std::string(failure.what());
        }
    };
    for (const auto& [members, failure] :
         mistakes{{R"(, "colour": 1)", "colour: there is no such option."},
                  {R"(, "import_events": [{"pattern": "a"}, {"pattern": "b", "path": ""}])",
                   "import_events[1].path: there is no such option."},
                  {R"(, "import_events": [{"pattern": "a"}, {"channel": "b"}])",
                   "import_events[1].pattern: it is missing."},
                  {R"(, "import_events": [{"pattern": "a"}, {"pattern": "*"}])",
                   "import_events[1].pattern: '*' overlaps with 'a' of import_events[0], so that "
                   "events would cross twice."},
                  {R"(, "export_events": ["a"])", "export_events[0]: an object is expected."},
                  {R"(, "export_events": {})", "export_events: an array is expected."},
                  {R"(, "servers": [4222])", "servers[0]: a text is expected."},
                  {R"(, "serve_requests": [{"pattern": "a", "mode": "all"}])",
                   R"(serve_requests[0].mode: "owner" or "any" or "unique" is expected.)"},
                  {R"(, "drain_limit_milliseconds": -1)",
                   "drain_limit_milliseconds: a whole number from 0 to 1000000000000 is expected."},
                  {R"(, "most_waiting": 1.5)",
                   "most_waiting: a whole number from 1 to 9007199254740992 is expected."}})
        EXPECT_EQ(failure_of(members), "The configuration " + file_ + ": Option " + failure);
    EXPECT_NE(failure_of(R"(, "host": "again")").find("Duplicate key: 'host'"), std::string::npos);
    EXPECT_THROW(read_configuration(testing::TempDir()), exceptions::error) << "a folder";
}

TEST_F(BridgeConfiguration, IsDescribedByWhatCrossesAndWithoutPasswords) {
    const auto options = read(
        R"(, "servers": ["nats://me:p@ss@127.0.0.1:4222", "localhost", "nats://[::1]:1",
            "nats://me:p@ss@127.example:4222", "localhost.example"],
        "export_events": [{"pattern": "a.*"}],
        "import_events": [{"pattern": "b\r\n", "channel": "ui"}],
        "ask_requests": [{"pattern": "c", "time_out_milliseconds": 7}],
        "serve_requests": [{"pattern": "*", "mode": "unique"}],
        "send_snowballs": [{"pattern": "d"}], "serve_snowballs": [{"pattern": "e.*"}],
        "when_full": "drop_oldest", "most_waiting": 9, "drain_limit_milliseconds": 0)");
    EXPECT_EQ(describe(options), R"(host "press" of realm "plant"
server nats://127.0.0.1:4222
server localhost
server nats://[::1]:1
server nats://127.example:4222, not encrypted, and beyond this machine
server localhost.example, not encrypted, and beyond this machine
out event "a.*" as er.plant.e.=.a.>
in  event "b\r\n" of channel "ui" as er.plant.e.ui.b=0D=0A
out request "c", answered within 7 ms, as er.plant.r.=.c
in  request "*", as the only one that may answer, as er.plant.r.<origin>.>
out snowball "d" as er.plant.s.<origin>.d
in  snowball "e.*" as er.plant.s.<origin>.e.>
)");
    const auto encrypted = read(R"(, "servers": ["nats://near.example", "tls://far.example"])");
    EXPECT_EQ(describe(encrypted), "host \"press\" of realm \"plant\"\nserver nats://near.example\n"
                                   "server tls://far.example\n")
        << "one that is, is enough for all";
    EXPECT_EQ(options.when_full, full_row::drop_oldest);
    EXPECT_EQ(options.most_waiting, 9U);
    EXPECT_EQ(options.drain_limit.count(), 0);
}

// Takes out what is for people, and defaults.
void strip(Json::Value& schema) {
    for (const char* text : {"description", "default", "title"})
        schema.removeMember(text);
    if (schema.isMember("properties"))
        for (auto& member : schema["properties"])
            strip(member);
    if (schema.isMember("items"))
        strip(schema["items"]);
}

TEST_F(BridgeConfiguration, IsWhatTheDocumentedSchemaDescribes) {
    std::ostringstream content;
    content << std::ifstream(CONFIGURATION_SCHEMA).rdbuf();
    Json::Value documented = serialization::json_from_text(content.str());
    const Json::Value limit = documented["properties"]["most_waiting_bytes"];
    EXPECT_EQ(limit["default"].asUInt64(), bridge_options().most_waiting_bytes);
    strip(documented);
    documented.removeMember("$schema");
    EXPECT_EQ(documented.toStyledString(), configuration_schema().toStyledString());
}

} // namespace
} // namespace zel::event_routing::nats
