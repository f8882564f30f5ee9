// Windows that work with libraries which come and go. Not linked with the library,
// which could not go then.
#include "platform/src/served_window_test.h"

#include <event_routing/module.h>
#include <event_routing/window_work.h>
#include <framework/exceptions/exceptions.h>
#include <framework/module_interface/loader.h>
#include <framework/module_interface/version_check.h>
#include <platform/library_image.h>
#include <platform/process.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace zel;
using namespace zel::event_routing;
using namespace zel::platform;

std::shared_ptr<IInWndProcHandling> handling_by(image_handle image, window_handle window) {
    const auto create = reinterpret_cast<IModule* (*)()>(find_function(image, "CreateModuleRaw"));
    IModule& module = *create();
    RequireInterface(module);
    auto handling = module.GetInWndProcHandling(window);
    RequireInterface(*handling);
    return handling;
}

class LoadedCopies : public testing::Test {
protected:
    ~LoadedCopies() override { std::filesystem::remove(copied_file); }

    image_handle load_a_copy() {
        std::filesystem::copy_file(image_path(original), copied_file);
        const auto loaded = load_library(copied_file);
        EXPECT_EQ(loaded.failure, "");
        EXPECT_NE(loaded.image, original);
        return loaded.image;
    }

    const image_handle original =
        mi::loader().load_dll("event_routing", mi::implementation_address());
    const std::string copied_file = std::filesystem::temp_directory_path() /
                                    ("libcopied_" + std::to_string(process_id()) + ".so");
    std::string notes;
};

TEST_F(LoadedCopies, PassOnTheWorkOfEachOtherAndLeaveTheWindowAsItWas) {
    window_handle handle{};
    const auto note = [&](const char* text) { return [this, text] { notes += text; }; };
    {
        function_window window([&](auto message, auto, auto) {
            notes += message == destroy_message ? "d" : "?";
            return 0;
        });
        handle = window.handle;
        const auto first = handling_by(original, handle);
        const auto second = handling_by(load_a_copy(), handle);
        EXPECT_NE(first, second);
        for (const char* text : {"1", "2"}) {
            EXPECT_TRUE(post_to_window(*first, note(text)));
            EXPECT_TRUE(post_to_window(*second, note(text)));
        }
        dispatch_messages();
        EXPECT_TRUE(send_to_window(*first, note("f")));
        EXPECT_TRUE(send_to_window(*second, note("s")));
        EXPECT_EQ(notes, "1122fs");
    }
    EXPECT_EQ(notes, "1122fsd");
    EXPECT_THROW(handling_by(original, handle), exceptions::error);
    EXPECT_TRUE(mi::loader().free_dll(original)) << "nothing is left of the window";
}

TEST_F(LoadedCopies, StayMappedForWindowsThatTheyLeaveBehind) {
    function_window window([&](auto, auto, auto) { return notes += '?', 0; });
    EXPECT_TRUE(post_to_window(*handling_by(original, window.handle), [] { ADD_FAILURE(); }));
    EXPECT_FALSE(mi::loader().free_dll(original));
    dispatch_messages();
    EXPECT_EQ(send_message(window.handle, first_own_message), 0) << "the default procedure's";
    EXPECT_EQ(notes, "");
}

} // namespace
