#include "framework/module_interface/loader.h"

#include "framework/exceptions/exceptions.h"
#include "framework/exceptions/message_of_test.h"
#include "framework/log/log_module.h"
#include "framework/module_interface/module_lifetime.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using namespace zel::platform;
using zel::mi::loader;
namespace fs = std::filesystem;

const char in_the_program = 'p';

// A folder with copies of libraries that nobody else has loaded.
class DllLoader : public testing::Test {
protected:
    DllLoader() { fs::create_directories(folder); }
    ~DllLoader() override { fs::remove_all(folder); }

    std::string copy(const std::string& library, const std::string& name) {
        const fs::path neighbour = image_path(image_of(reinterpret_cast<void*>(&process_id)));
        const fs::path target = folder / library_file_name(name);
        fs::copy_file(neighbour.parent_path() / library_file_name(library), target);
        return target;
    }
    static std::string failure_of(const std::string& library, const void* caller) {
        return zel::exceptions::message_of<zel::exceptions::error>(
            [&] { loader().load_dll(library, caller); });
    }

    const fs::path folder = fs::canonical(fs::temp_directory_path()) /
                            ("dll_loader_test_" + std::to_string(process_id()));
};

TEST_F(DllLoader, CountsReferencesAndUnmapsALibraryWithTheLast) {
    const std::string path = copy("zel_module_lifetime", "counted");
    const auto image = loader().load_dll(path, nullptr);
    EXPECT_EQ(loader().load_dll(path, nullptr), image);
    const void* const inside = find_symbol(image, "GetModuleLifetimeDll");
    EXPECT_FALSE(loader().free_dll(image));
    EXPECT_EQ(image_of(inside), image);
    EXPECT_TRUE(loader().free_dll(image));
    EXPECT_EQ(image_of(inside), image_handle::none);
    for (const auto unknown : {image, image_handle::none, image_handle{0xAB}})
        EXPECT_THROW(loader().free_dll(unknown), zel::exceptions::error);
}

TEST_F(DllLoader, NamesALibraryThatCouldNotBeLoadedAndTheReason) {
    const std::string missing = failure_of("no_such", &in_the_program);
    EXPECT_TRUE(missing.starts_with("The library no_such could not be loaded: libno_such.so"))
        << missing;
    EXPECT_NE(missing.find("No such file"), std::string::npos) << missing;
}

TEST_F(DllLoader, PrefersTheLibraryBesideTheCallerEvenWhenItIsBroken) {
    const auto from = loader().load_dll(copy("zel_module_lifetime", "caller"), nullptr);
    const void* const caller = find_symbol(from, "GetModuleLifetimeDll");
    const std::string beside = copy("zel_module_lifetime", "zel_log");
    const auto near = loader().load_dll("zel_log", caller);
    const auto usual = loader().load_dll("zel_log", &in_the_program);
    EXPECT_EQ(image_path(near), beside);
    EXPECT_NE(usual, near);
    loader().free_dll(usual);
    EXPECT_TRUE(loader().free_dll(near));

    std::ofstream(beside) << "no library";
    EXPECT_NE(failure_of("zel_log", caller).find(beside), std::string::npos);
    EXPECT_TRUE(loader().free_dll(from));
}

TEST_F(DllLoader, KeepsALibraryMappedWhileOneOfItsObjectsIsAlive) {
    class quiet final : public zel::log::ILogSink {
        void Write(const zel::log::record&) override {}
    };
    const std::string path = copy("zel_log", "log_copy");
    const auto image = loader().load_dll(path, nullptr);
    void* const create = find_symbol(image, "_ZN3zel3log6detail15CreateLogModuleEv");
    auto module = reinterpret_cast<std::shared_ptr<zel::log::ILogModule> (*)()>(create)();
    auto object = module->AddSink(std::make_shared<quiet>(), 0);
    const auto lifetime = reinterpret_cast<std::shared_ptr<zel::mi::IModuleLifetime> (*)()>(
        find_symbol(image, "_ZN3zel3log6detail23GetModuleLifetimeObjectEv"))();
    EXPECT_TRUE(lifetime->IsModuleUsed());
    module.reset();
    EXPECT_TRUE(lifetime->IsModuleUsed()) << "by the subscription";
    EXPECT_FALSE(loader().free_dll(image));
    object.reset();
    EXPECT_FALSE(lifetime->IsModuleUsed());
    EXPECT_EQ(image_of(create), image);

    EXPECT_EQ(loader().load_dll(path, nullptr), image);
    EXPECT_TRUE(loader().free_dll(image));
    EXPECT_EQ(image_of(create), image_handle::none);
}

} // namespace
