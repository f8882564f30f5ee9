#include "platform/src/served_window_test.h"

#include <gtest/gtest.h>
#include <poll.h>

namespace zel::platform {
namespace {

bool is_readable(int descriptor, milliseconds patience_for_it = milliseconds(0)) {
    pollfd one{descriptor, POLLIN, 0};
    return poll(&one, 1, static_cast<int>(patience_for_it.count())) == 1 && one.revents == POLLIN;
}

TEST(MessageDescriptor, IsReadableExactlyWhileSomethingIsToBeDone) {
    function_window window;
    EXPECT_TRUE(post_message(window.handle, 0)) << "before somebody asks for it";
    const int messages = message_descriptor();
    EXPECT_EQ(message_descriptor(), messages);
    EXPECT_TRUE(is_readable(messages));
    dispatch_messages();
    EXPECT_FALSE(is_readable(messages));

    quit_message_loop(1);
    EXPECT_TRUE(is_readable(messages));
    EXPECT_EQ(dispatch_messages(), 1);

    watched_thread sender([&] { send_message(window.handle, 0); });
    EXPECT_TRUE(is_readable(messages, patience));
    dispatch_messages();
    sender.join();
    EXPECT_FALSE(is_readable(messages));

    EXPECT_TRUE(post_message(window.handle, 0));
    destroy_window(window.handle);
    EXPECT_FALSE(is_readable(messages)) << "dropped with its window";
}

TEST(MessageDescriptor, WakesAForeignLoopForEveryMessageOfOtherThreads) {
    int handled = 0;
    function_window window([&](auto, auto, auto) { return ++handled, 0; });
    const int messages = message_descriptor();
    watched_thread poster([&] {
        for (int i = 0; i < 5'000; ++i)
            EXPECT_TRUE(post_message(window.handle, 0));
    });
    while (handled < 5'000 && is_readable(messages, patience))
        dispatch_messages();
    poster.join();
    EXPECT_EQ(handled, 5'000);
}

} // namespace
} // namespace zel::platform
