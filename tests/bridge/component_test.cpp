// The bridge as a component that a host loads.
#include "tests/bridge/host_process.h"

#include <cstdio>
#include <fstream>

namespace zel::event_routing::nats {
namespace {

const words load{"load", "event_routing_bridge"};
const words unload{"unload", "event_routing_bridge"};

TEST(BridgeComponent, IsUnloadedAndLoadedAgainInTrafficAndDoublesNothing) {
    REQUIRE_NATS_SERVER();
    server server;
    server.start();
    const std::string file = testing::TempDir() + "bridge_on_" + server.port() + ".json";
    std::ofstream(file) << R"({"realm": "test", "host": "loading", "servers": ["nats://127.0.0.1:)"
                        << server.port() << R"("], "export_events": [{"pattern": "b"}],
                            "import_events": [{"pattern": "a"}]})";
    host_process loading("loading", server, file);
    host_process staying("staying", server);
    staying.tell_all("export a; import b; listen seen b; start; ready; flow a");
    loading.tell_all("listen seen a; flow b");
    for (int i = 0; i < 8; ++i) {
        const auto loading_saw = loading.journal("seen").size();
        const auto staying_saw = staying.journal("seen").size();
        loading.tell(load);
        loading.tell({"await", "seen", std::to_string(loading_saw + 20)});
        staying.tell({"await", "seen", std::to_string(staying_saw + 20)});
        loading.tell(unload);
    }
    for (auto* host : {&loading, &staying}) {
        int latest = -1;
        for (const auto& entry : host->journal("seen")) {
            EXPECT_GT(std::stoi(entry.at(2)), latest) << "twice, or out of order";
            latest = std::stoi(entry.at(2));
        }
        EXPECT_EQ(host->end(), 0);
    }
    std::remove(file.c_str());
}

TEST(BridgeComponent, DoesNotStartWithoutAConfigurationAndSaysWhichVariableAndFile) {
    server server;
    const auto failure_of_loading = [&](const std::string& file) {
        host_process host("loading", server, file);
        host.begin(load);
        const auto line = host.program().read_line();
        EXPECT_EQ(host.end(), 0);
        return line ? words_in(*line).at(1) : "";
    };
    const std::string begin = "The component event_routing_bridge could not be started: The "
                              "environment variable EVENT_ROUTING_BRIDGE_CONFIGURATION";
    EXPECT_EQ(failure_of_loading(""),
              begin + ", which names the configuration of the bridge, is not set.");
    EXPECT_EQ(failure_of_loading("/no/file.json").find(begin + ": The configuration /no/file.json"),
              0U);
}

} // namespace
} // namespace zel::event_routing::nats
