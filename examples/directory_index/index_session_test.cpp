#include "examples/directory_index/index_session.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using namespace directory_index;

TEST(IndexSession, ReportsWhatItHasFoundWhenItIsStopped) {
    const auto folder = std::filesystem::temp_directory_path() /
                        ("index_session_test_" + std::to_string(zel::platform::process_id()));
    std::filesystem::create_directory(folder);
    for (const char* name : {"a", "b", "c"})
        std::ofstream(folder / name) << "word";
    const auto to = services::of_this_process();
    zel::platform::event stop{zel::platform::reset_mode::manual, false};
    index_session session(to, {folder, false, {}});
    const auto interrupting = to.events->RegisterEventHandler(
        nullptr, "file.*", [&](auto&&...) { return stop.set(), true; }, nullptr,
        "Ctrl-C at the first file");
    EXPECT_FALSE(session.index(stop));
    testing::internal::CaptureStdout();
    session.print_report();
    const std::string report = testing::internal::GetCapturedStdout();
    EXPECT_NE(report.find("Total: 1 file,"), std::string::npos) << report;
    EXPECT_NE(report.find("Words: 1 distinct, 1 in all, in 1 file"), std::string::npos)
        << "not all asynchronous work was waited for: " << report;
    std::filesystem::remove_all(folder);
}

} // namespace
