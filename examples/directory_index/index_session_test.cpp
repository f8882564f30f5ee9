#include "examples/directory_index/index_session.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace directory_index;
using zel::platform::event;
using zel::platform::reset_mode;

class IndexSession : public testing::Test {
protected:
    IndexSession() {
        std::filesystem::create_directory(folder_);
        for (const char* name : {"a", "b", "c"})
            std::ofstream(folder_ / name) << "word";
    }
    ~IndexSession() override { std::filesystem::remove_all(folder_); }

    template <class Body>
    static std::string printed_by(Body body) {
        testing::internal::CaptureStdout();
        body();
        return testing::internal::GetCapturedStdout();
    }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() /
        ("index_session_test_" + std::to_string(zel::platform::process_id()));
    const services to_ = services::of_this_process();
    event stop_{reset_mode::manual, false};
};

TEST_F(IndexSession, ReportsWhatItHasFoundWhenItIsStopped) {
    index_session session(to_, {folder_, false, {}});
    const auto interrupting = to_.events->RegisterEventHandler(
        nullptr, "file.*",
        [this](auto&&...) {
            stop_.set();
            return true;
        },
        nullptr, "Ctrl-C at the first file");
    EXPECT_FALSE(session.index(stop_));
    const std::string report = printed_by([&] { session.print_report(); });
    EXPECT_NE(report.find("Total: 1 file,"), std::string::npos) << report;
    EXPECT_NE(report.find("Words: 1 distinct, 1 in all, in 1 file"), std::string::npos)
        << "not all asynchronous work was waited for: " << report;
}

TEST_F(IndexSession, ReportsWhatChangesUntilItIsStopped) {
    index_session session(to_, {folder_, true, {}});
    EXPECT_FALSE(session.index(stop_));
    printed_by([&] { session.print_report(); });
    event seen(reset_mode::manual, false);
    const auto found = to_.events->RegisterEventHandler(
        nullptr, "file.found.new", [&](auto&&...) { return seen.set(), true; }, nullptr, "found");
    const std::string elsewhere = folder_.string() + ".new";
    const std::string news = printed_by([&] {
        std::thread follower([&] { EXPECT_FALSE(session.follow(stop_)); });
        std::ofstream(elsewhere) << "other word";
        std::filesystem::rename(elsewhere, folder_ / "d.new"); // complete from the first moment on
        EXPECT_TRUE(seen.wait(zel::platform::milliseconds(60'000)));
        stop_.set();
        follower.join();
    });
    EXPECT_TRUE(news.starts_with("\nNew      " + (folder_ / "d.new").string() + "\n\n")) << news;
    EXPECT_NE(news.find("Words: 2 distinct, 5 in all, in 4 files"), std::string::npos) << news;
}

} // namespace
