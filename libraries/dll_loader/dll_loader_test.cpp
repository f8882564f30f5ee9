#include "framework/module_interface/loader.h"

#include "framework/exceptions/exceptions.h"
#include "framework/exceptions/message_of_test.h"
#include "framework/log/log_module.h"

#include <platform/process.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace zel::mi {

namespace {

using exceptions::message_of;
using platform::image_handle;
using platform::image_of;
namespace fs = std::filesystem;

const char in_the_program = 'p';

// A folder with copies of libraries that nobody else has loaded.
class DllLoader : public testing::Test {
protected:
    ~DllLoader() override { fs::remove_all(folder); }

    std::string copy(const std::string& library, const std::string& name) {
        const fs::path platform =
            platform::image_path(image_of(reinterpret_cast<void*>(&platform::process_id)));
        const fs::path target = folder / platform::library_file_name(name);
        fs::copy_file(platform.parent_path() / platform::library_file_name(library), target);
        return target;
    }

    static fs::path make_folder() {
        const auto name = "dll_loader_test_" + std::to_string(platform::process_id());
        fs::create_directories(fs::temp_directory_path() / name);
        return fs::canonical(fs::temp_directory_path() / name);
    }

    const fs::path folder = make_folder();
};

TEST_F(DllLoader, SaysWhichLibraryCouldNotBeLoadedAndWhy) {
    const auto failure_of = [](const std::string& library) {
        return message_of<exceptions::error>([&] { loader().load_dll(library, &in_the_program); });
    };
    const std::string missing = failure_of("no_such");
    EXPECT_TRUE(missing.starts_with("The library no_such could not be loaded: libno_such.so"))
        << missing;
    EXPECT_NE(missing.find("No such file"), std::string::npos) << missing;
    const std::string path = folder / "some.so";
    EXPECT_TRUE(failure_of(path).starts_with("The library " + path + " could not be loaded: "));
}

TEST_F(DllLoader, CountsReferencesAndUnmapsALibraryWithTheLast) {
    const std::string path = copy("zel_module_lifetime", "counted");
    const auto image = loader().load_dll(path, nullptr);
    EXPECT_EQ(loader().load_dll(path, nullptr), image);
    const void* const inside = platform::find_symbol(image, "GetModuleLifetimeDll");
    EXPECT_FALSE(loader().free_dll(image));
    EXPECT_EQ(image_of(inside), image);
    EXPECT_TRUE(loader().free_dll(image));
    EXPECT_EQ(image_of(inside), image_handle::none);

    EXPECT_THROW(loader().free_dll(image), exceptions::error);
    EXPECT_EQ(message_of<exceptions::error>([] { loader().free_dll(image_handle{0xAB}); }),
              "free_dll: the image 0xab was not loaded by load_dll, or is freed already.");
}

TEST_F(DllLoader, PrefersTheLibraryBesideTheCallerEvenWhenItIsBroken) {
    const auto from = loader().load_dll(copy("zel_module_lifetime", "caller"), nullptr);
    const void* const caller = platform::find_symbol(from, "GetModuleLifetimeDll");
    const fs::path beside = copy("zel_module_lifetime", "zel_log");
    const auto near = loader().load_dll("zel_log", caller);
    EXPECT_EQ(platform::image_path(near), beside);
    const auto usual = loader().load_dll("zel_log", &in_the_program);
    EXPECT_NE(platform::image_path(usual), beside);
    loader().free_dll(usual);
    EXPECT_TRUE(loader().free_dll(near));

    std::ofstream(beside) << "no library";
    const std::string failure =
        message_of<exceptions::error>([&] { loader().load_dll("zel_log", caller); });
    EXPECT_NE(failure.find(beside), std::string::npos) << failure;
    EXPECT_TRUE(loader().free_dll(from));
}

TEST_F(DllLoader, KeepsALibraryMappedWhileOneOfItsObjectsIsAlive) {
    const std::string path = copy("zel_log", "log_copy");
    const auto image = loader().load_dll(path, nullptr);
    void* const create = platform::find_symbol(image, "_ZN3zel3log6detail15CreateLogModuleEv");
    auto module = reinterpret_cast<std::shared_ptr<log::ILogModule> (*)()>(create)();
    class quiet final : public log::ILogSink {
        void Write(const log::record&) override {}
    };
    auto object = module->AddSink(std::make_shared<quiet>(), 0);
    module.reset();
    EXPECT_FALSE(loader().free_dll(image));
    object.reset();
    EXPECT_EQ(image_of(create), image);

    EXPECT_EQ(loader().load_dll(path, nullptr), image);
    EXPECT_TRUE(loader().free_dll(image));
    EXPECT_EQ(image_of(create), image_handle::none);
}

} // namespace

} // namespace zel::mi
