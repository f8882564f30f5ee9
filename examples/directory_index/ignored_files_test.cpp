#include "examples/directory_index/ignored_files.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using directory_index::ignored_files;

TEST(IgnoredFiles, AreThoseThatTheFoldersFileNamesAndGitsOwn) {
    const auto folder = std::filesystem::temp_directory_path() /
                        ("ignored_files_test_" + std::to_string(zel::platform::process_id()));
    std::filesystem::create_directory(folder);
    std::ofstream(folder / ".gitignore") << "# build\n\n/build/\n*.swp  \r\n.cache/\ndoc/*.pdf\n"
                                            "a*b*c\n?.o\n!kept.swp\n[ab]\n**/x\n\\#";
    const ignored_files ignored(folder);
    std::filesystem::remove_all(folder);

    const auto left_out = [&](const char* path, bool is_folder) {
        return ignored.contains(folder.string() + "/" + path, is_folder);
    };
    for (const char* path : {"build", ".git", "sub/.cache", ".cache"})
        EXPECT_TRUE(left_out(path, true)) << path;
    for (const char* path : {"build/x", "sub/.cache/deep/x", ".git", "a.swp", "sub/.swp",
                             "doc/a.pdf", "abc", "axbxbxc", "sub/a.o", ".git/config"})
        EXPECT_TRUE(left_out(path, false)) << path;
    for (const char* path :
         {"build", "sub/build/x", ".cache", "swp", "a.swp.txt", "a.pdf", "doc/sub/a.pdf",
          "sub/doc/a.pdf", "abcd", "a/b/c", "ab.o", "a", ".gitignore"})
        EXPECT_FALSE(left_out(path, false)) << path;
    EXPECT_FALSE(left_out("sub/build", true));
    EXPECT_FALSE(ignored.contains("build", true)) << "is elsewhere";
    EXPECT_EQ(ignored.not_understood(),
              (std::vector<std::string>{"!kept.swp", "[ab]", "**/x", "\\#"}));

    EXPECT_FALSE(ignored_files().contains(folder.string() + "/.git", true));
    EXPECT_TRUE(ignored_files("/").contains("/.git/config", false)) << "without such a file";
}

} // namespace
