#include <platform/folder_watch.h>

#include <platform/process.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
namespace fs = std::filesystem;
using where = folder_change::where;

class FolderWatch : public testing::Test {
protected:
    FolderWatch() { fs::create_directories(root_); }
    ~FolderWatch() override { fs::remove_all(root_); }

    void write(const fs::path& file) { std::ofstream(root_ / file) << "x"; }

    // Reads on to the expected change; a missing one hangs until the test's time is over.
    bool tells_of(where at, const fs::path& name) {
        const folder_change expected{at, name.empty() ? root_ : root_ / name};
        for (;;) {
            while (!unread_.empty()) {
                told_.push_back(unread_.front());
                unread_.pop_front();
                if (told_.back() == expected)
                    return true;
            }
            const auto changes = watch_.wait();
            unread_.assign(changes->begin(), changes->end());
        }
    }

    const fs::path root_ =
        fs::temp_directory_path() / ("folder_watch_test_" + std::to_string(process_id()));
    folder_watch watch_;
    std::deque<folder_change> unread_;
    std::vector<folder_change> told_;
};

TEST_F(FolderWatch, TellsWhereToLookAgain) {
    write("old");
    ASSERT_FALSE(watch_.add(root_));
    fs::permissions(root_ / "old", fs::perms::owner_read);
    EXPECT_TRUE(tells_of(where::file, "old"));
    fs::rename(root_ / "old", root_ / "moved");
    EXPECT_TRUE(tells_of(where::file, "old") && tells_of(where::file, "moved"));
    fs::remove(root_ / "moved");
    EXPECT_TRUE(tells_of(where::file, "moved"));
    fs::create_directory(root_ / "folder");
    EXPECT_TRUE(tells_of(where::folder, "folder"));
    EXPECT_EQ(watch_.add(root_ / "none"), std::errc::no_such_file_or_directory);
    fs::remove_all(root_);
    EXPECT_TRUE(tells_of(where::folder, "folder"));
    EXPECT_TRUE(tells_of(where::folder, "")) << "the added folder itself";
}

TEST_F(FolderWatch, NamesNothingInAFolderThatWasMovedAwayByItsFormerPath) {
    fs::create_directories(root_ / "a/below");
    fs::create_directory(root_ / "ab");
    for (const char* folder : {"", "a", "a/below", "ab"})
        ASSERT_FALSE(watch_.add(root_ / folder));
    fs::rename(root_ / "a", root_ / "b");
    EXPECT_TRUE(tells_of(where::folder, "b"));
    ASSERT_FALSE(watch_.add(root_ / "b/below"));
    told_.clear();
    write("b/unwatched");
    write("b/below/file");
    EXPECT_TRUE(tells_of(where::file, "b/below/file"));
    write("ab/file");
    EXPECT_TRUE(tells_of(where::file, "ab/file")) << "only looks like part of what was moved";
    for (const auto& change : told_)
        EXPECT_FALSE(change.path.starts_with((root_ / "a/").string())) << change.path;
}

TEST_F(FolderWatch, EndsAWaitThatRunsAndLaterOnes) {
    auto waiting = std::async(std::launch::async, [&] { return watch_.wait(); });
    watch_.stop();
    EXPECT_FALSE(waiting.get());
    EXPECT_FALSE(watch_.wait());
}

} // namespace
