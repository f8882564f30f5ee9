// Loads the routing library through the loader, frees it and looks whether it is
// really gone. Not linked with the library, or it could never be.
#include "platform/src/served_window_test.h"
#include "tests/support/mapped_files.h"

#include <event_routing/event_routing.h>
#include <event_routing/module.h>
#include <event_routing/window_work.h>
#include <framework/module_interface/loader.h>
#include <framework/module_interface/version_check.h>
#include <tasklib/keep_registered.h>

#include <gtest/gtest.h>
#include <string>

namespace {

using namespace zel;
using namespace zel::event_routing;
using test::is_mapped;

const std::string routing = "libevent_routing.so";

class Unload : public testing::Test {
protected:
    void load() {
        image = mi::loader().load_dll("event_routing", mi::implementation_address());
        const auto create =
            reinterpret_cast<IModule* (*)()>(platform::find_function(image, "CreateModuleRaw"));
        ASSERT_NE(create, nullptr);
        module = create();
        RequireInterface(*module);
    }
    bool free() { return mi::loader().free_dll(image); }

    // Loads the log as well.
    void use() {
        const auto events = module->GetEventRouting();
        const auto cookie = events->RegisterEventHandler(
            nullptr, "a", [](auto&&...) -> bool { throw 1; }, nullptr, "fails");
        testing::internal::CaptureStderr();
        events->BroadcastEvent("a", nullptr, {}, nullptr);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("throws exception!"),
                  std::string::npos);
    }

    platform::image_handle image = platform::image_handle::none;
    IModule* module = nullptr;
};

TEST_F(Unload, LeavesTheAddressSpaceAndCanBeLoadedAgain) {
    for (int round = 0; round < 3; ++round) {
        load();
        EXPECT_EQ(module->CreateUniqueName(""), "ADD3D808-347A-4DF5-B2E8-C234DA07DCEC-1")
            << "a freshly loaded library starts from the beginning";
        use();
        load(); // a second reference
        EXPECT_FALSE(free());
        EXPECT_TRUE(is_mapped(routing));
        EXPECT_TRUE(is_mapped("libzel_serialization.so"));
        EXPECT_TRUE(free());
        EXPECT_FALSE(is_mapped(routing));
        EXPECT_FALSE(is_mapped("libzel_serialization.so")) << "nobody else uses it";
    }
}

TEST_F(Unload, KeepsItsCodeWhileAnObjectIsAlive) {
    load();
    auto events = module->GetEventRouting();
    EXPECT_FALSE(free());
    EXPECT_TRUE(is_mapped(routing));
    events->RegisterEventHandler(nullptr, "a", nullptr, nullptr, "still works").reset();
    events.reset();
    image = mi::loader().load_dll("event_routing", nullptr);
    EXPECT_TRUE(free());
    EXPECT_FALSE(is_mapped(routing));
    EXPECT_THROW(free(), std::exception) << "freed once too often";
}

TEST_F(Unload, TakesTheNeighboursAlongThatOnlyTheLibraryUsed) {
    for (int round = 0; round < 100; ++round) {
        image = mi::loader().load_dll("task_user", mi::implementation_address());
        reinterpret_cast<void (*)()>(platform::find_function(image, "run_a_task"))();
        ASSERT_TRUE(free());
        for (const char* file : {"libtask_user.so", "libzel_tasks_core.so", "libzel_perfstats.so"})
            ASSERT_FALSE(is_mapped(file)) << file << ", round " << round;
    }
}

// The last one: the library stays for good.
TEST_F(Unload, StaysForWindowsThatItLeavesBehindAndForNoOthers) {
    std::string notes;
    const auto note = [&](auto message, auto, auto) { return notes += std::to_string(message), 0; };
    const auto post = [&](const platform::function_window& window) {
        const auto handling = module->GetInWndProcHandling(window.handle);
        RequireInterface(*handling);
        EXPECT_TRUE(post_to_window(*handling, [&] { notes += "work "; }));
    };
    load();
    {
        const platform::function_window gone(note);
        post(gone);
        platform::dispatch_messages();
    }
    EXPECT_EQ(std::exchange(notes, {}), "work 2") << "and the end of the window";
    EXPECT_TRUE(free());
    load();
    const platform::function_window left(note);
    post(left);
    EXPECT_FALSE(free());
    platform::dispatch_messages();
    EXPECT_EQ(platform::send_message(left.handle, platform::first_own_message), 0);
    EXPECT_EQ(notes, "") << "no work, and messages go to the default procedure";
}

} // namespace
