#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/loader.h"
#include "framework/module_interface/neighbour_module.h"
#include "generic/tasklib/src/tasks/task_library.h"
#include "platform/src/watched_thread_test.h"
#include "tests/support/failure_of.h"
#include "tests/support/mapped_files.h"
#include "tests/support/scarce_memory.h"

#include <platform/diagnostics.h>
#include <platform/image_use.h>
#include <platform/process.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace zel::platform;
using zel::exceptions::error;
using zel::mi::library_state;
using zel::mi::loader;
namespace fs = std::filesystem;

constexpr auto handler = "handler of events";

// Copies of libraries in a folder of its own: nobody else has mapped those.
class DllLoader : public testing::Test {
protected:
    DllLoader() {
        fs::create_directories(folder);
        fs::copy_file(own / "libending_library.so", library);
    }
    ~DllLoader() override { fs::remove_all(folder); }

    static image_handle load(const fs::path& file) { return loader().load_dll(file, nullptr); }
    static int at_the_end(image_handle image, void (*action)()) {
        const auto tell = reinterpret_cast<int (*)(void (*)())>(find_function(image, "at_the_end"));
        return tell(action);
    }
    static bool is_mapped() { return zel::test::is_mapped("libending.so"); }
    std::string refusal() const {
        return zel::test::failure_of([&] { load(library); });
    }

    const fs::path own =
        fs::path(image_path(image_of(reinterpret_cast<void*>(&process_id)))).parent_path();
    const fs::path folder = fs::canonical(fs::temp_directory_path()) /
                            ("dll_loader_test_" + std::to_string(process_id()));
    const fs::path library = folder / "libending.so";
};

TEST_F(DllLoader, PrefersTheLibraryBesideTheCaller) {
    const fs::path beside = folder / "libzel_log.so";
    fs::copy_file(own / "libzel_module_lifetime.so", folder / "libcaller.so");
    fs::copy_file(own / "libzel_module_lifetime.so", beside);

    const auto from = load(folder / "libcaller.so");
    const void* const caller = find_function(from, "GetModuleLifetimeDll");
    const auto near = loader().load_dll("zel_log", caller);
    const auto usual = loader().load_dll("zel_log", zel::mi::implementation_address());
    EXPECT_EQ(image_path(near), beside);
    EXPECT_NE(usual, near);
    EXPECT_TRUE(loader().free_dll(near));
    loader().free_dll(usual);
    EXPECT_TRUE(loader().free_dll(from));
}

TEST_F(DllLoader, KeepsWhatIsInUseAndRefusesToLoadItUntilItIsNot) {
    static int ends = 0;
    const auto image = load(library);
    EXPECT_EQ(load(library), image);
    at_the_end(image, [] { ++ends; });
    auto use = std::make_unique<image_use>(image, handler, "a.b", "title bar");
    EXPECT_EQ(loader().describe_uses(image, 9),
              std::vector<std::string>{"handler of events 'a.b' (title bar)"});
    EXPECT_EQ(loader().give_back(image), library_state::loaded);
    EXPECT_EQ(ends, 0);
    EXPECT_EQ(loader().give_back(image), library_state::kept);
    EXPECT_EQ(ends, 1) << "it has ended, once";
    EXPECT_TRUE(is_mapped());
    EXPECT_THROW(loader().give_back(image), error) << "freed once too often";
    EXPECT_EQ(refusal(), "The library " + library.string() +
                             " could not be loaded: it was unloaded before, but it is still in "
                             "use: handler of events 'a.b' (title bar).");
    EXPECT_EQ(loader().unload_all_kept(), 1U);
    EXPECT_FALSE(loader().unload_kept(image, milliseconds(1)));

    const auto wait = [&] { EXPECT_TRUE(loader().unload_kept(image, infinite)); };
    watched_thread waiting(wait), waiting_too(wait);
    EXPECT_TRUE(waiting.falls_asleep() && waiting_too.falls_asleep());
    use.reset();
    waiting.join();
    waiting_too.join();
    EXPECT_FALSE(is_mapped());
    EXPECT_EQ(ends, 1);

    const auto again = load(library);
    EXPECT_EQ(at_the_end(again, [] {}), 1) << "mapped afresh";
    EXPECT_TRUE(loader().free_dll(again));
}

TEST_F(DllLoader, TellsObserversWhatKeepsALibraryThatItsUserGivesBack) {
    std::string told;
    const exception_observer observer([&](auto, auto arguments) {
        told += std::string(reinterpret_cast<const char*>(arguments[1]), arguments[0]);
    });
    auto used = std::make_unique<zel::mi::loaded_library>(library);
    // Only its image matters; it is not called.
    const auto function = used->function<void(const std::exception_ptr&)>("at_the_end");
    auto& failures = zel::tasklib::get_tasks_module()->log_exception_function();
    failures.set(function);
    auto kept = failures.get();
    failures.set({});
    used.reset();
    EXPECT_EQ(told, "The library " + library.string() +
                        " stays mapped, because it is in use: function for failed tasks.");
    kept.reset();
    EXPECT_EQ(loader().unload_all_kept(), 0U);
    EXPECT_FALSE(is_mapped());
}

TEST_F(DllLoader, RefusesWhatHasEndedWhileSomebodyElseKeepsItMapped) {
    const auto image = load(library);
    const auto of_somebody_else = find_mapped_library(library);
    EXPECT_EQ(loader().give_back(image), library_state::kept);
    EXPECT_EQ(refusal(), "The library " + library.string() +
                             " could not be loaded: it was unloaded before, but something outside "
                             "of the loader keeps it mapped.");
    EXPECT_FALSE(loader().unload_kept(image, infinite)) << "nothing would tell of its end";
    EXPECT_EQ(loader().unload_all_kept(), 1U);
    unload_library(of_somebody_else);
    EXPECT_TRUE(loader().free_dll(load(library)));
}

TEST_F(DllLoader, HoldsWhatOthersHadMappedWhileItIsInUse) {
    const auto image = load_library(library).image;
    EXPECT_EQ(load(library), image);
    auto use = std::make_unique<image_use>(image, handler, "a.b");
    EXPECT_EQ(loader().give_back(image), library_state::loaded);
    unload_library(image);
    EXPECT_TRUE(is_mapped());
    EXPECT_THROW(loader().give_back(image), error) << "freed once too often";
    EXPECT_EQ(load(library), image) << "it has not ended";
    EXPECT_EQ(loader().give_back(image), library_state::loaded);
    use.reset();
    EXPECT_EQ(loader().unload_all_kept(), 0U);
    EXPECT_FALSE(is_mapped());
}

image_handle kept_at_exit = image_handle::none;

// Registered before the service that ends all libraries, so called after it.
const int told_last = std::atexit([] {
    if (kept_at_exit != image_handle::none)
        std::fputs(loader().unload_kept(kept_at_exit, infinite) ? "unmapped" : "left", stderr);
});

TEST_F(DllLoader, LeavesWhatIsKeptWhenTheProcessExits) {
    const auto exit_with_a_kept_library = [&] {
        kept_at_exit = load(library);
        {
            const image_use use(kept_at_exit, handler, "a.b");
            EXPECT_EQ(loader().give_back(kept_at_exit), library_state::kept);
        }
        std::exit(told_last);
    };
    EXPECT_EXIT(exit_with_a_kept_library(), testing::ExitedWithCode(0), "left");
}

struct : signal {
} end_begins, end_may_go_on;

TEST_F(DllLoader, WaitsForTheEndOfALibraryWhateverItsPath) {
    fs::create_symlink(library, folder / "another_name.so");
    const auto image = load(library);
    at_the_end(image, [] {
        end_begins.set();
        EXPECT_TRUE(end_may_go_on.comes());
    });
    watched_thread freeing([&] { EXPECT_TRUE(loader().free_dll(image)); });
    EXPECT_TRUE(end_begins.comes());
    watched_thread loading([&] {
        const auto fresh = load(folder / "another_name.so");
        EXPECT_EQ(at_the_end(fresh, [] {}), 1) << "not the one that was ending";
        EXPECT_TRUE(loader().free_dll(fresh));
    });
    EXPECT_TRUE(loading.falls_asleep());
    end_may_go_on.set();
    freeing.join();
    loading.join();
}

TEST_F(DllLoader, EndsOnceWhatTwoThreadsHaveLoadedAtOnce) {
    static std::atomic<int> ends{0};
    for (int round = 0; round < 100; ++round) {
        ends = 0;
        std::atomic<int> ready{0};
        image_handle images[2] = {};
        const auto load_as = [&](int place) {
            ++ready;
            while (ready < 2)
                std::this_thread::yield();
            images[place] = load(library);
        };
        {
            watched_thread other([&] { load_as(1); });
            load_as(0);
        }
        ASSERT_EQ(images[0], images[1]);
        at_the_end(images[0], [] { ++ends; });
        ASSERT_FALSE(loader().free_dll(images[0]));
        ASSERT_EQ(ends, 0);
        ASSERT_TRUE(loader().free_dll(images[1])) << "round " << round;
        ASSERT_EQ(ends, 1);
    }
}

TEST_F(DllLoader, LeavesNothingMappedWhenMemoryIsShort) {
    loader().free_dll(load(library)); // makes what stays
    const std::string file = library;
    EXPECT_GT(zel::test::failures_of([&] {
                  ASSERT_FALSE(is_mapped());
                  loader().free_dll(loader().load_dll(file, nullptr));
              }),
              1);
    EXPECT_FALSE(is_mapped());
}

} // namespace
