#include "examples/directory_index/trace_file.h"

#include <framework/serialization/json_text.h>
#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <set>
#include <system_error>
#include <thread>

namespace {

using namespace directory_index;

Json::Value events_in(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    return zel::serialization::json_from_text(text)["traceEvents"];
}

// How many pairs there are of each category; a begin without its end and an end without its
// begin make a failure.
std::map<std::string, std::set<std::string>> pairs_by_category(const Json::Value& events) {
    std::map<std::string, std::set<std::string>> ids;
    std::map<std::string, double> open;
    for (const auto& event : events) {
        const std::string key = event["cat"].asString() + "#" + event["id"].asString();
        if (event["ph"] == "b") {
            EXPECT_TRUE(open.emplace(key, event["ts"].asDouble()).second) << key;
        } else if (event["ph"] == "e") {
            EXPECT_TRUE(open.contains(key) && open[key] <= event["ts"].asDouble()) << key;
            open.erase(key);
            EXPECT_TRUE(ids[event["cat"].asString()].insert(event["id"].asString()).second);
        }
    }
    EXPECT_TRUE(open.empty());
    return ids;
}

TEST(TraceFile, TiesAsynchronousPartsToTheirBroadcastsAndIsJsonAtAnyTime) {
    constexpr int broadcasts_of_each = 200;
    const auto file = std::filesystem::temp_directory_path() /
                      ("trace_file_test_" + std::to_string(zel::platform::process_id()));
    const auto services = directory_index::services::of_this_process();
    const auto& events = services.events;
    const auto inner = events->RegisterEventHandler(
        nullptr, "inner", [](auto&&...) { return true; }, nullptr, "inner");
    const auto nests = [&](auto&&...) {
        events->BroadcastEvent("inner", nullptr, {}, nullptr);
        return true;
    };
    const auto quoted =
        events->RegisterEventHandler(nullptr, "outer", nullptr, nests, "a \"quoted\" \xff\n name");
    const auto queued =
        events->RegisterEventHandler(events->CreateTaskQueue(), "outer", nests, nests, "queued");
    {
        trace_file trace(file, services);
        EXPECT_EQ(events_in(file).size(), 1u) << "as after a sudden end";
        const auto broadcast = [&] {
            routing_parameters until_all_have_ended;
            until_all_have_ended["synchronous"] = -1;
            for (int i = 0; i < broadcasts_of_each; ++i)
                events->BroadcastEvent("outer", nullptr, until_all_have_ended, nullptr);
        };
        std::thread other(broadcast);
        broadcast();
        other.join();
        EXPECT_GT(events_in(file).size(), 1u) << "as after a sudden end";
        trace.close();
    }
    const auto traced = events_in(file);
    std::filesystem::remove(file);

    const auto ids = pairs_by_category(traced);
    ASSERT_EQ(ids.size(), 3u) << "broadcasts, and two handlers with asynchronous parts";
    EXPECT_EQ(ids.at("broadcast").size(), 2 * broadcasts_of_each * 4u);
    for (const auto& [category, messages] : ids) {
        if (category != "broadcast") {
            EXPECT_EQ(messages.size(), 2u * broadcasts_of_each) << category;
        }
        for (const auto& message : messages)
            EXPECT_TRUE(ids.at("broadcast").contains(message)) << category;
    }
    std::map<std::string, int> complete;
    for (const auto& event : traced)
        if (event["ph"] == "X") {
            ++complete[event["cat"].asString()];
            EXPECT_EQ(event["args"]["level"], event["cat"] == "broadcast" ? Json::Value() : 1);
        }
    EXPECT_EQ(complete["broadcast"], 2 * broadcasts_of_each * 4);
    EXPECT_EQ(complete["synchronous"], 2 * broadcasts_of_each * 4);
    EXPECT_EQ(complete["asynchronous"], 2 * broadcasts_of_each * 2);
}

TEST(TraceFile, FailsWhereItCannotBeWritten) {
    const auto services = directory_index::services::of_this_process();
    for (const char* file : {"/dev/full", "/nowhere/trace"})
        EXPECT_THROW(trace_file(file, services), std::system_error) << file;
}

} // namespace
