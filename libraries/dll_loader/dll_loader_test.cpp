#include "framework/module_interface/loader.h"

#include <platform/process.h>

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
using zel::mi::loader;
namespace fs = std::filesystem;

TEST(DllLoader, PrefersTheLibraryBesideTheCaller) {
    const fs::path platform = image_path(image_of(reinterpret_cast<void*>(&process_id)));
    const fs::path library = platform.parent_path() / "libzel_module_lifetime.so";
    const fs::path folder = fs::canonical(fs::temp_directory_path()) /
                            ("dll_loader_test_" + std::to_string(process_id()));
    const fs::path beside = folder / "libzel_log.so";
    fs::create_directories(folder);
    fs::copy_file(library, folder / "libcaller.so");
    fs::copy_file(library, beside);

    const auto from = loader().load_dll(folder / "libcaller.so", nullptr);
    const void* const caller = find_function(from, "GetModuleLifetimeDll");
    const auto near = loader().load_dll("zel_log", caller);
    const auto usual = loader().load_dll("zel_log", zel::mi::implementation_address());
    EXPECT_EQ(image_path(near), beside);
    EXPECT_NE(usual, near);
    EXPECT_TRUE(loader().free_dll(near));
    loader().free_dll(usual);
    EXPECT_TRUE(loader().free_dll(from));
    fs::remove_all(folder);
}

} // namespace
