#include <platform/library_image.h>
#include <platform/process.h>

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;

const char in_the_program = 'p';

TEST(LibraryImage, IsFoundByAnAddressInsideAndKnowsItsFileAndExports) {
    void* const in_a_library = reinterpret_cast<void*>(&process_id);
    const char on_the_stack = 's';
    EXPECT_EQ(image_path(image_of(&in_the_program)), std::filesystem::canonical("/proc/self/exe"));
    EXPECT_EQ(image_of(&on_the_stack), image_handle::none);
    EXPECT_EQ(image_path(image_handle::none), "");

    const auto loaded = load_library(library_file_name("zel_platform"));
    EXPECT_EQ(loaded.image, image_of(in_a_library));
    EXPECT_EQ(loaded.failure, "");
    const std::filesystem::path path = image_path(loaded.image);
    EXPECT_TRUE(path.is_absolute());
    EXPECT_EQ(path.filename(), "libzel_platform.so");
    EXPECT_EQ(find_symbol(loaded.image, "_ZN3zel8platform10process_idEv"), in_a_library);
    EXPECT_EQ(find_symbol(loaded.image, "no_such_symbol"), nullptr);
    EXPECT_EQ(find_symbol(image_handle::none, "malloc"), nullptr);
    unload_library(loaded.image);
}

TEST(LibraryImage, SaysWhyALibraryCouldNotBeLoaded) {
    const auto missing = load_library("libno_such.so");
    EXPECT_EQ(missing.image, image_handle::none);
    EXPECT_NE(missing.failure.find("libno_such.so"), std::string::npos);
    EXPECT_NE(missing.failure.find("No such file"), std::string::npos);
}

} // namespace
