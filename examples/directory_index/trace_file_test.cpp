#include "examples/directory_index/trace_file.h"

#include "examples/directory_index/report_text.h"

#include <framework/serialization/json_text.h>
#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>

namespace {

using namespace directory_index;

TEST(TraceFile, TakesFewerAndFewerMessagesBeforeItGetsTooLarge) {
    constexpr std::size_t size = 256 * 1024;
    const auto file = std::filesystem::temp_directory_path() /
                      ("trace_file_test_" + std::to_string(zel::platform::process_id()));
    const auto services = directory_index::services::of_this_process();
    const auto odd_name = services.events->RegisterEventHandler(
        nullptr, "a", [](auto&&...) { return true; }, nullptr, "a \"quoted\" \xff\n name");
    trace_file trace(file, services, size);
    for (int i = 0; i < 50'000; ++i)
        services.events->BroadcastEvent("a", nullptr, {}, nullptr);
    trace.close();
    EXPECT_LE(std::filesystem::file_size(file), size * 101 / 100);
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const auto traced = zel::serialization::json_from_text(text)["traceEvents"];
    std::filesystem::remove(file);

    std::map<std::string, int> notes;
    std::int64_t first = 0, last = 0, shown = 0;
    for (const auto& event : traced) {
        if (event["ph"] == "i")
            ++notes[event["name"].asString()];
        if (event["ph"] != "X")
            continue;
        last = event["args"]["message"].asInt64();
        first = shown++ == 0 ? last : first;
    }
    EXPECT_GE(notes.size(), 4u) << "one for each time that messages became fewer";
    EXPECT_EQ(notes["from here on one of 64 messages"], 1);
    EXPECT_GT(last - first, 49'000) << "the end is in it";
    EXPECT_EQ(trace.omission(), "would be larger than 256.0 KiB: " + grouped(100'000 - shown) +
                                    " of 100,000 events are left out, from marked places on");
}

} // namespace
