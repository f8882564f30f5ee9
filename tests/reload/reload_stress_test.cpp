// Plug-ins come and go under the traffic of others, which nobody stops meanwhile. The
// sanitizers watch.
#include "tests/reload/plugin.h"
#include "tests/support/mapped_files.h"

#include <event_routing/component_host.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <thread>

namespace zel::test {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::array plugins = {"asynchronous_plugin", "request_plugin", "payload_plugin",
                                "monitor_plugin"};
constexpr int reloads_of_each = 520;

// How long it goes on at least.
std::chrono::seconds duration() {
    const char* const text = std::getenv("EVENT_ROUTING_STRESS_SECONDS");
    return std::chrono::seconds(text ? std::atoi(text) : 0);
}

// Asks for drawings and keeps the latest answers while their plug-in goes; so that it can,
// each time that nobody answers one is let go.
void keep_answers(const services& to, const std::atomic<bool>& ends, std::uint64_t& kept_in_all) {
    std::deque<request_answer> kept;
    while (!ends) {
        request_answer response, error_response;
        if (to.requests->SendRequest(paths::draw, serialization::make_payload(std::tuple(9)),
                                     response, error_response,
                                     {{"supress_not_processed_exception", 1}})) {
            kept.push_back(response);
            ++kept_in_all;
        }
        if (kept.size() > 8 || (!response && !kept.empty())) {
            drawing scratch;
            const auto* const oldest = serialization::GetDataValue(kept.front(), scratch);
            EXPECT_TRUE(oldest) << "an answer outlives its plug-in's stay";
            kept.pop_front();
        }
    }
}

// Until it has been reloaded often enough and the time is over.
void reload_again_and_again(const std::string& plugin, clock::time_point end) {
    component_host host;
    host.start(plugin);
    for (int done = 0; done < reloads_of_each || clock::now() < end; ++done)
        host.reload(plugin, std::chrono::minutes(1));
    const auto last = host.stop(plugin, std::chrono::minutes(1));
    EXPECT_TRUE(last.is_unmapped) << last.text();
}

TEST(ReloadStress, PluginsComeAndGoUnderTheTrafficOfOthers) {
    std::uint64_t answers = 0;
    {
        const services to;
        component_host traffic;
        traffic.start("traffic_plugin");
        std::atomic<bool> ends{false};
        std::jthread keeping([&] { keep_answers(to, ends, answers); });
        {
            std::vector<std::jthread> reloading;
            for (const char* const plugin : plugins)
                reloading.emplace_back(&reload_again_and_again, plugin, clock::now() + duration());
        }
        ends = true;
        keeping.join();
        EXPECT_TRUE(traffic.stop("traffic_plugin").is_unmapped);
    }
    EXPECT_GT(answers, 1000u) << "little was answered";
    for (const std::string plugin : plugins)
        EXPECT_FALSE(is_mapped("lib" + plugin + ".so")) << plugin << " is left";
}

} // namespace
} // namespace zel::test
