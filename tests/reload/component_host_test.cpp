#include <event_routing/component_host.h>

#include "tests/reload/plugin.h"
#include "tests/support/failure_of.h"
#include "tests/support/mapped_files.h"

#include <framework/log/log_module.h>
#include <platform/diagnostics.h>
#include <platform/event.h>
#include <platform/library_image.h>

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace zel::test {
namespace {

using strings = std::vector<std::string>;
using std::chrono::milliseconds;

class ComponentHost : public testing::Test {
protected:
    bool is_there() const { return is_mapped("libtried_plugin.so"); }
    void start(const std::string& entry = "start_event_routing_component") {
        host.start("tried_plugin", entry);
    }
    stopped_library stop(milliseconds longest = component_host::patience) {
        return host.stop("tried_plugin", longest);
    }

    request_answer ask(const std::string& path) {
        request_answer response, error_response;
        to.requests->SendRequest(path, nullptr, response, error_response, {});
        return response;
    }
    // How often the library was asked this before: loaded anew it was never asked.
    std::string asked_before() {
        std::string scratch;
        return *serialization::GetDataValue(ask("asked.before"), scratch);
    }

    const services to{};
    strings ended;
    const std::shared_ptr<tasklib::keep_registered> hears = to.events->RegisterEventHandler(
        nullptr, "ended.*",
        [this](const std::string& path, auto&&...) {
            ended.push_back(path.substr(6));
            return true;
        },
        nullptr, "hears of ends");
    component_host host;
};

TEST_F(ComponentHost, StopsTheLatestFirstAndLoadsAnew) {
    start();
    start("start_second");
    EXPECT_EQ(host.running(), strings(2, "tried_plugin"));
    EXPECT_EQ(asked_before(), "0");
    EXPECT_EQ(asked_before(), "1");
    host.reload("tried_plugin");
    EXPECT_EQ(ended, (strings{"second", "first"}));
    EXPECT_EQ(asked_before(), "0") << "it has kept its state";

    const auto end = stop();
    EXPECT_TRUE(end.is_unmapped) << end.text();
    EXPECT_FALSE(is_there());
    EXPECT_EQ(host.running(), strings());
    EXPECT_EQ(ended, (strings{"second", "first", "second", "first"}));
    EXPECT_EQ(failure_of([&] { stop(); }), "There is no component of the library tried_plugin.");
    {
        component_host other;
        other.start("tried_plugin");
    }
    EXPECT_EQ(ended.size(), 5u);
    EXPECT_FALSE(is_there()) << "the end of a host stops what it has started";
}

TEST_F(ComponentHost, LeavesNothingOfAComponentThatCannotStart) {
    const std::string begin = "The component tried_plugin could not be started: ";
    EXPECT_EQ(failure_of([&] { start("start_failing"); }), begin + "no paper");
    EXPECT_EQ(ended, strings{"failed"});
    EXPECT_EQ(failure_of([&] { start("start_nothing"); }),
              begin + "it gave the host nothing to hold");
    EXPECT_TRUE(
        failure_of([&] { start("none"); }).ends_with("libtried_plugin.so does not export none."));
    EXPECT_FALSE(is_there());
    EXPECT_TRUE(failure_of([&] {
                    host.start("no_plugin");
                }).starts_with("The library no_plugin could not be loaded: "));
    EXPECT_EQ(host.running(), strings());
}

TEST_F(ComponentHost, TellsWhatKeepsALibraryAndRefusesToStartWhatHasEnded) {
    std::atomic<std::size_t> inside{0};
    platform::event gate{platform::reset_mode::manual, false};
    const auto keeper = to.requests->RegisterRequestHandler(
        "gate", 0,
        [&](auto&&...) {
            ++inside;
            return gate.wait();
        },
        "gate keeper");
    start();
    const auto log = [] { log::get_log_module()->Write({"gate", {}, {}, {}, {}, {}}); };
    const std::vector<std::function<void()>> calls = {
        [&] { to.events->BroadcastEvent("slow", nullptr, {}, nullptr); },
        [] { serialization::get_bin_serialization_module()->CreateData("tried.data"); },
        [] { platform::raise_text_report("text"); }, log};
    std::vector<std::jthread> calling(calls.begin(), calls.end());
    while (inside < calling.size())
        std::this_thread::yield();
    auto kept = ask("keepsake");

    const auto end = stop(milliseconds(20));
    EXPECT_FALSE(end.is_unmapped);
    const auto refused = failure_of([&] { start(); });
    for (const auto& text : {end.text(), refused}) {
        for (const char* use : {"tried_plugin", "'slow' (is slow)", "factory of data 'tried.data'",
                                "diagnostic observer", "log sink", "'struct keepsake'"})
            EXPECT_NE(text.find(use), text.npos) << use << " is not in " << text;
    }
    EXPECT_EQ(host.running(), strings());
    gate.set();
    calling.clear(); // joins
    EXPECT_NE(failure_of([&] { start(); }), "") << "somebody still keeps an answer";
    std::weak_ptr only_weakly = kept->GetData();
    kept.reset();
    EXPECT_NE(failure_of([&] { start(); }), "") << "its memory was made by the plug-in";
    only_weakly.reset();
    start();
    EXPECT_EQ(asked_before(), "0");
    EXPECT_TRUE(stop().is_unmapped);
    EXPECT_FALSE(is_there());
}

TEST_F(ComponentHost, LeavesALibraryToOthersThatHoldIt) {
    start();
    component_host other;
    other.start("tried_plugin", "start_second");
    const auto refused = failure_of([&] { host.reload("tried_plugin", milliseconds(0)); });
    EXPECT_NE(refused.find("tried_plugin"), refused.npos) << refused;
    EXPECT_TRUE(refused.ends_with("because others have loaded it, too.")) << refused;
    EXPECT_EQ(ended, strings{"first"});
    EXPECT_EQ(host.running(), strings());
    EXPECT_TRUE(is_there());
    const auto mapped = platform::find_mapped_library("libtried_plugin.so");
    EXPECT_EQ(
        other.stop("tried_plugin", platform::infinite).text(),
        "The library tried_plugin stays mapped, because something outside of the loader keeps "
        "it mapped.");
    platform::unload_library(mapped);
    EXPECT_FALSE(is_there());
}

} // namespace
} // namespace zel::test
