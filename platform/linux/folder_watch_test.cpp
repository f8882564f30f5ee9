#include <platform/folder_watch.h>

#include <platform/process.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
namespace fs = std::filesystem;
using where = folder_change::where;

TEST(FolderWatch, TellsOfAttributesAndNothingInAFolderThatWasMovedAwayByItsFormerPath) {
    const fs::path root =
        fs::temp_directory_path() / ("folder_watch_test_" + std::to_string(process_id()));
    fs::create_directories(root / "a/below");
    fs::create_directory(root / "ab");
    const auto write = [&](const char* file) { std::ofstream(root / file) << "x"; };
    write("old");

    folder_watch watch;
    std::deque<folder_change> unread;
    std::vector<folder_change> told;
    // Reads on to the expected change; a missing one hangs until the test's time is over.
    const auto tells_of = [&](where at, const char* name) {
        const folder_change expected{at, root / name};
        do {
            while (unread.empty()) {
                const auto changes = watch.wait();
                unread.assign(changes->begin(), changes->end());
            }
            told.push_back(unread.front());
            unread.pop_front();
        } while (told.back() != expected);
        return true;
    };
    for (const char* folder : {"", "a", "a/below", "ab"})
        ASSERT_FALSE(watch.add(root / folder));
    EXPECT_EQ(watch.add(root / "none"), std::errc::no_such_file_or_directory);
    fs::permissions(root / "old", fs::perms::owner_read);
    EXPECT_TRUE(tells_of(where::file, "old"));
    fs::rename(root / "a", root / "b");
    EXPECT_TRUE(tells_of(where::folder, "b"));
    ASSERT_FALSE(watch.add(root / "b/below"));
    told.clear();
    write("b/unwatched");
    write("b/below/file");
    EXPECT_TRUE(tells_of(where::file, "b/below/file"));
    write("ab/file");
    EXPECT_TRUE(tells_of(where::file, "ab/file")) << "only looks like part of what was moved";
    for (const auto& change : told)
        EXPECT_FALSE(change.path.starts_with((root / "a/").string())) << change.path;
    fs::remove_all(root);
}

} // namespace
