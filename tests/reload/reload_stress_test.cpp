// Plug-ins come and go under the traffic of others, which nobody stops meanwhile. The
// sanitizers watch.
#include "tests/reload/plugin.h"
#include "tests/support/mapped_files.h"
#include "tests/support/stress.h"

#include <event_routing/component_host.h>

#include <framework/log/log_module.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace zel::test {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::array plugins = {"asynchronous_plugin", "request_plugin", "payload_plugin",
                                "monitor_plugin"};
constexpr int reloads_of_each = 520;

// How often others have sent: a plug-in stays for some of that each time.
class sent_by_others {
public:
    explicit sent_by_others(IEventRouting& events)
        : counts_(events.RegisterEventHandler(
              nullptr, paths::work,
              [this](auto&&...) {
                  ++sent_;
                  sent_.notify_all();
                  return true;
              },
              nullptr, "counts")) {}

    void wait_for_more(std::uint32_t more) const {
        const std::uint32_t begin = sent_;
        for (std::uint32_t now = begin; now - begin < more; now = sent_)
            sent_.wait(now);
    }

private:
    std::atomic<std::uint32_t> sent_{0};
    const std::shared_ptr<tasklib::keep_registered> counts_;
};

// Asks for drawings and keeps the latest answers while their plug-in goes; so that it can,
// each time that nobody answers one is let go.
void keep_answers(const services& to, const std::atomic<bool>& ends, std::uint64_t& kept_in_all) {
    std::deque<request_answer> kept;
    while (!ends) {
        request_answer response, error_response;
        if (to.requests->SendRequest(paths::draw, nullptr, response, error_response,
                                     {{"supress_not_processed_exception", 1}})) {
            kept.push_back(response);
            ++kept_in_all;
        }
        if (kept.size() > 8 || (!response && !kept.empty())) {
            drawing scratch;
            const auto* const oldest = serialization::GetDataValue(kept.front(), scratch);
            ASSERT_TRUE(oldest && oldest->strokes.size() == 9u) << "an answer has changed";
            kept.pop_front();
        }
    }
}

// Until it has been reloaded often enough and the time is over.
void reload_again_and_again(const std::string& plugin, const sent_by_others& sent,
                            clock::time_point end) {
    component_host host;
    host.start(plugin);
    const auto stop = [&] {
        const auto stopped = host.stop(plugin, std::chrono::minutes(1));
        EXPECT_TRUE(stopped.is_unmapped) << stopped.text();
    };
    for (int done = 0; done < reloads_of_each || clock::now() < end; ++done) {
        sent.wait_for_more(3);
        if (done % 2 == 0) {
            host.reload(plugin, std::chrono::minutes(1));
        } else { // while others send there is no code where it was
            stop();
            sent.wait_for_more(1);
            host.start(plugin);
        }
    }
    stop();
}

TEST(ReloadStress, PluginsComeAndGoUnderTheTrafficOfOthers) {
    std::uint64_t answers = 0;
    {
        const services to{};
        // A handler that runs while its plug-in ends may find that it can make no more payloads.
        log::get_log_module()->SetDefaultSinkSeverity(log::silent);
        component_host traffic;
        traffic.start("traffic_plugin");
        const sent_by_others sent(*to.events);
        std::atomic<bool> ends{false};
        std::jthread keeping([&] { keep_answers(to, ends, answers); });
        {
            std::vector<std::jthread> reloading;
            for (const char* const plugin : plugins)
                reloading.emplace_back(&reload_again_and_again, plugin, std::ref(sent),
                                       clock::now() + stress_time(0));
        }
        ends = true;
        keeping.join();
        EXPECT_TRUE(traffic.stop("traffic_plugin").is_unmapped);
    }
    EXPECT_GT(answers, 100u) << "little was answered";
    for (const std::string plugin : plugins)
        EXPECT_FALSE(is_mapped("lib" + plugin + ".so")) << plugin << " is left";
}

} // namespace
} // namespace zel::test
