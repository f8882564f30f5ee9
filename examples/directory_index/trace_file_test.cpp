#include "examples/directory_index/trace_file.h"

#include "examples/directory_index/report_text.h"

#include <framework/serialization/json_text.h>
#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <thread>

namespace {

using namespace directory_index;

Json::Value events_in(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    return zel::serialization::json_from_text(text)["traceEvents"];
}

std::filesystem::path place() {
    return std::filesystem::temp_directory_path() /
           ("trace_file_test_" + std::to_string(zel::platform::process_id()));
}

TEST(TraceFile, TiesAsynchronousPartsToTheirBroadcastsAndIsJsonAtAnyTime) {
    constexpr int broadcasts = 200; // of each of two threads
    const auto file = place();
    const auto services = directory_index::services::of_this_process();
    const auto& events = services.events;
    const auto works = [](auto&&...) { return true; };
    const auto quoted =
        events->RegisterEventHandler(nullptr, "a", nullptr, works, "a \"quoted\" \xff\n name");
    const auto queued =
        events->RegisterEventHandler(events->CreateTaskQueue(), "a", works, works, "queued");
    {
        trace_file trace(file, services);
        const auto broadcast = [&] {
            for (int i = 0; i < broadcasts; ++i)
                events->BroadcastEvent("a", nullptr, {{"synchronous", -1}}, nullptr);
        };
        std::thread other(broadcast);
        broadcast();
        other.join();
        EXPECT_GT(events_in(file).size(), 1u) << "as after a sudden end";
        trace.close();
        EXPECT_EQ(trace.omission(), "");
    }
    const auto traced = events_in(file);
    std::filesystem::remove(file);

    std::map<int, std::string> names;  // by thread
    std::map<std::string, int> counts; // by category, of events with a begin and an end in one
    std::map<std::string, int> pairs;  // by message
    Json::Value begin;
    for (const auto& event : traced) {
        const std::string phase = event["ph"].asString();
        if (phase == "M")
            names[event["tid"].asInt()] = event["args"]["name"].asString();
        EXPECT_TRUE(names.contains(event["tid"].asInt())) << "has a name before its first event";
        if (phase == "e") {
            EXPECT_TRUE(begin["ph"] == "b" && begin["cat"] == event["cat"] &&
                        begin["id"] == event["id"] && begin["ts"] <= event["ts"]);
            ++pairs[event["id"].asString()];
        }
        if (phase == "X")
            ++counts[event["cat"].asString()];
        begin = event;
    }
    EXPECT_EQ(counts, (std::map<std::string, int>{{"asynchronous", 2 * broadcasts * 2},
                                                  {"broadcast", 2 * broadcasts},
                                                  {"synchronous", 2 * broadcasts}}));
    EXPECT_EQ(pairs.size(), 2u * broadcasts);
    for (const auto& [message, count] : pairs)
        EXPECT_EQ(count, 3) << message << ": the broadcast, and two asynchronous parts";
}

TEST(TraceFile, TakesFewerAndFewerMessagesBeforeItGetsTooLarge) {
    constexpr std::size_t size = 256 * 1024;
    const auto file = place();
    const auto services = directory_index::services::of_this_process();
    trace_file trace(file, services, size);
    for (int i = 0; i < 50'000; ++i)
        services.events->BroadcastEvent("a", nullptr, {}, nullptr);
    trace.close();
    EXPECT_LE(std::filesystem::file_size(file), size * 101 / 100);
    const auto traced = events_in(file);
    std::filesystem::remove(file);

    std::map<std::string, int> notes;
    std::int64_t first = 0, last = 0, messages = 0;
    for (const auto& event : traced) {
        if (event["ph"] == "i")
            ++notes[event["name"].asString()];
        if (event["ph"] != "X")
            continue;
        last = event["args"]["message"].asInt64();
        first = messages++ == 0 ? last : first;
    }
    EXPECT_GE(notes.size(), 4u) << "one for each time that messages became fewer";
    EXPECT_EQ(notes["from here on one of 64 messages"], 1);
    EXPECT_GT(last - first, 49'000) << "the end is in it";
    EXPECT_EQ(trace.omission(), "would be larger than 256.0 KiB: " + grouped(50'000 - messages) +
                                    " of 50,000 events are left out, from marked places on");
}

} // namespace
