#include "examples/directory_index/index_session.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <utility>

namespace {

using namespace directory_index;

class IndexSession : public testing::Test {
protected:
    IndexSession() { std::filesystem::create_directory(folder); }
    ~IndexSession() override { std::filesystem::remove_all(folder); }

    // What is done at each event of this path until the test's end.
    cookie at(const std::string& path, std::function<void()> action) {
        return to.events->RegisterEventHandler(
            nullptr, path, [action](auto&&...) { return action(), true; }, nullptr, "test");
    }
    static std::string report_of(index_session& session) {
        testing::internal::CaptureStdout();
        session.print_report();
        return testing::internal::GetCapturedStdout();
    }

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() /
        ("index_session_test_" + std::to_string(zel::platform::process_id()));
    const services to = services::of_this_process();
    zel::platform::event stop{zel::platform::reset_mode::manual, false};
};

TEST_F(IndexSession, ReadsNoFurtherFilesWhenItIsStopped) {
    constexpr int files = 20;
    for (int i = 0; i < files; ++i)
        std::ofstream(folder / std::to_string(i)) << "word";
    index_session session(to, {.folder = folder});
    // Keeps the first asynchronous part from its end until the components know of the stop.
    zel::platform::event told{zel::platform::reset_mode::manual, false};
    const auto telling = at("walk.interrupted", [&] { told.set(); });
    const auto reading = at("index.changed", [&, patience = 10'000]() mutable {
        told.wait(zel::platform::milliseconds(std::exchange(patience, 0)));
    });
    const auto counting = at("file.*", [&, found = 0]() mutable {
        if (++found == files)
            stop.set();
    });
    EXPECT_FALSE(session.index(stop));
    const std::string report = report_of(session);
    EXPECT_NE(report.find("Total: 20 files,"), std::string::npos) << report;
    EXPECT_NE(report.find("; not read: "), std::string::npos) << report;
}

TEST_F(IndexSession, LeavesALargeFileWhenItIsStopped) {
    std::ofstream(folder / "large.txt");
    std::filesystem::resize_file(folder / "large.txt", 64 * 1024 * 1024);
    index_session session(to, {.folder = folder});
    int steps = 0;
    const auto interrupting = at("walk.working", [&] { stop.set(), ++steps; });
    EXPECT_FALSE(session.index(stop));
    EXPECT_LE(steps, 2) << "goes on counting";
    const std::string report = report_of(session);
    EXPECT_NE(report.find("Total: 1 file,"), std::string::npos) << report;
    EXPECT_EQ(report.find("Text:"), std::string::npos) << "counted in part: " << report;
}

} // namespace
