#include "framework/module_interface/loader.h"

#include "framework/exceptions/exceptions.h"

#include <platform/process.h>

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
using zel::mi::loader;
namespace fs = std::filesystem;

const char in_the_program = 'p';

std::string failure_of(const std::string& library, const void* caller) {
    try {
        loader().load_dll(library, caller);
    } catch (const zel::exceptions::error& failure) {
        return failure.what();
    }
    return "none";
}

TEST(DllLoader, PrefersTheLibraryBesideTheCallerEvenWhenItIsBrokenAndUnmapsItWithTheLastReference) {
    const fs::path platform = image_path(image_of(reinterpret_cast<void*>(&process_id)));
    const fs::path library = platform.parent_path() / "libzel_module_lifetime.so";
    const fs::path folder = fs::canonical(fs::temp_directory_path()) /
                            ("dll_loader_test_" + std::to_string(process_id()));
    const fs::path beside = folder / "libzel_log.so";
    fs::create_directories(folder);
    fs::copy_file(library, folder / "libcaller.so");
    fs::copy_file(library, beside);

    const auto from = loader().load_dll(folder / "libcaller.so", nullptr);
    const void* const caller = find_symbol(from, "GetModuleLifetimeDll");
    const auto near = loader().load_dll("zel_log", caller);
    const auto usual = loader().load_dll("zel_log", &in_the_program);
    EXPECT_EQ(image_path(near), beside);
    EXPECT_NE(usual, near);
    EXPECT_EQ(loader().load_dll("zel_log", caller), near);
    EXPECT_FALSE(loader().free_dll(near));
    EXPECT_EQ(image_path(near), beside);
    EXPECT_TRUE(loader().free_dll(near));
    EXPECT_THROW(loader().free_dll(near), zel::exceptions::error);
    loader().free_dll(usual);

    fs::resize_file(beside, 7);
    EXPECT_NE(failure_of("zel_log", caller).find(beside), std::string::npos);
    EXPECT_TRUE(failure_of("no_such", &in_the_program)
                    .starts_with("The library no_such could not be loaded: libno_such.so: "));
    EXPECT_TRUE(loader().free_dll(from));
    EXPECT_EQ(image_of(caller), image_handle::none);
    fs::remove_all(folder);
}

} // namespace
