// The program that hosts components, and the bridge as one of them.
#include "tests/bridge/host_process.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace zel::event_routing::nats {
namespace {

using namespace std::chrono_literals;

class BridgeProgram : public testing::Test {
protected:
    void SetUp() override { REQUIRE_NATS_SERVER(); }
    void TearDown() override { std::filesystem::remove(file_); }

    std::string configuration(const std::string& members) {
        std::ofstream(file_)
            << R"({"realm": "test", "host": "program", "servers": ["nats://127.0.0.1:)"
            << server_.port() << "\"], " << members << "}";
        return file_;
    }

    server server_;
    // The number of a port that is free now is as good a name as any.
    std::string file_ =
        std::filesystem::temp_directory_path() / ("bridge_" + server_.port() + ".json");
};

TEST_F(BridgeProgram, SaysWhatWouldCrossAndRefusesMistakes) {
    const auto says = [](const words& arguments, int code) {
        words command{BRIDGE_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        platform::piped_program program(command);
        words lines;
        while (const auto line = program.read_line(30s))
            lines.push_back(*line);
        EXPECT_EQ(program.wait(), code);
        return lines;
    };
    const auto good = configuration(R"("export_events": [{"pattern": "a.*", "channel": "c"}],
        "serve_requests": [{"pattern": "work.*", "mode": "any"}])");
    EXPECT_EQ(says({"--check", "--config", good}, 0),
              (words{"host program in realm test", "exports events   a.* of channel c",
                     "serves requests  work.*, as any host"}));
    EXPECT_EQ(says({"--config", configuration(R"("no": 1)"), "--check"}, 1), words{});
    EXPECT_EQ(says({"--config", "/nowhere/at/all"}, 1), words{});
    EXPECT_EQ(says({"--check"}, 2), words{});
}

// The bridge of the second is a component like the one that answers, loaded by a host that does not
// know of it, and unloaded while it is connected.
TEST_F(BridgeProgram, ConnectsItsComponentsAlsoWhereTheBridgeIsOneOfThem) {
    server_.start();
    host_process asking("asking", server_);
    asking.tell({"ask", "work.*", "60000"});
    asking.tell({"start"});
    asking.tell({"ready"});
    const auto served =
        configuration(R"("serve_requests": [{"pattern": "work.*", "mode": "any"}])");
    const auto answers = [&](const char* expected) {
        for (int i = 0; i < 10'000; ++i)
            if (asking.tell({"request", "work.a", ""}).at(0).at(1) == expected)
                return true;
        return false;
    };
    {
        platform::piped_program program({BRIDGE_PROGRAM, "--config", served, ANSWERING_COMPONENT});
        EXPECT_TRUE(answers("answered"));
        program.interrupt();
        EXPECT_EQ(program.wait(), 130);
        EXPECT_TRUE(answers("nobody"));
    }
    setenv("EVENT_ROUTING_BRIDGE_CONFIG", served.c_str(), 1);
    host_process plain("plain", server_);
    plain.tell({"load", ANSWERING_COMPONENT});
    for (int i = 0; i < 2; ++i) {
        plain.tell({"load", BRIDGE_COMPONENT});
        EXPECT_TRUE(answers("answered"));
        plain.tell({"unload", BRIDGE_COMPONENT});
        EXPECT_TRUE(answers("nobody"));
    }
}

} // namespace
} // namespace zel::event_routing::nats
