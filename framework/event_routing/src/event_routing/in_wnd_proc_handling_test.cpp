#include "framework/event_routing/src/event_routing/in_wnd_proc_handling_manager.h"

#include "framework/event_routing/src/event_routing/event_routing_impl.h"
#include "generic/tasklib/src/tasks/reg_cookie.h"
#include "platform/src/served_window_test.h"

#include <event_routing/window_work.h>

#include <array>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace zel::event_routing::impl {
namespace {

using namespace platform;

struct signal : event {
    signal() : event(reset_mode::manual, false) {}
    bool comes() { return wait(patience); }
};

class WindowWork : public testing::Test {
protected:
    std::shared_ptr<InWndProcHandling> handling_of(window_handle window) {
        return InWndProcHandlingManager::GetHandling(window, events);
    }
    auto note(char letter) {
        return [this, letter] { notes += letter; };
    }
    auto cookie(char letter) { return tasklib::make_reg_cookie(note(letter)); }

    const std::shared_ptr<EventRoutingImpl> events = std::make_shared<EventRoutingImpl>();
    std::string notes;
};

TEST_F(WindowWork, HasOneHandlingObjectForAWindowAndNoneForOneThatDoesNotExist) {
    function_window window, other;
    std::array<std::shared_ptr<InWndProcHandling>, 4> found;
    {
        std::vector<std::jthread> threads;
        for (auto& one : found)
            threads.emplace_back([&] { one = handling_of(window.handle); });
    }
    for (const auto& one : found)
        EXPECT_EQ(one, found[0]);
    EXPECT_NE(handling_of(other.handle), found[0]);
    EXPECT_EQ(found[0]->previous(), &call_function) << "one procedure in front of the window's";
    EXPECT_NE(found[0]->GetTaskQueue(), nullptr);
    {
        // In front of the library's, and keeps the end of the window from it.
        function_window swallowed;
        handling_of(swallowed.handle)->KeepHandlerRegistered(cookie('k'));
        const auto kept = handling_of(swallowed.handle)->KeepHandlerRegistered(cookie('r'));
        replace_window_procedure(swallowed.handle, [](auto...) -> std::intptr_t { return 0; });
        destroy_window(swallowed.handle);
        EXPECT_EQ(notes, "k");
        EXPECT_THROW(handling_of(swallowed.handle), exceptions::error);
        EXPECT_EQ(notes, "kr") << "what was left is released";
    }
    for (int twice = 0; twice < 2; ++twice) {
        try {
            handling_of(window_handle{0xfedcba9});
            ADD_FAILURE();
        } catch (const exceptions::error& failure) {
            EXPECT_NE(std::string(failure.what()).find("0xfedcba9"), std::string::npos);
        }
    }
}

TEST_F(WindowWork, RunsWhatManyThreadsPostInTheOrderOfEachOnTheWindowsThread) {
    std::array<int, 4> last{};
    served_window window;
    const auto handling = handling_of(window.handle());
    const auto post = [&](std::size_t poster) {
        for (int value = 1; value <= 1'000; ++value)
            EXPECT_TRUE(post_to_window(*handling, [&, poster, value] {
                EXPECT_EQ(window_thread(window.handle()), this_thread_id());
                EXPECT_EQ(value, ++last.at(poster));
            }));
    };
    {
        watched_thread a([&] { post(0); }), b([&] { post(1); }), c([&] { post(2); });
        post(3);
    }
    int seen = 0;
    EXPECT_TRUE(send_to_window(*handling, [&] { seen = 1; })) << "does not wait for the posted";
    EXPECT_EQ(seen, 1);
    window.end();
    EXPECT_EQ(last, (std::array<int, 4>{1'000, 1'000, 1'000, 1'000}));
}

TEST_F(WindowWork, RunsOneQueuedItemPerMessageAndPassesOnMessagesOfOthers) {
    function_window window([&](auto message, auto wparam, auto lparam) -> std::intptr_t {
        if (message == work_message_of_this_library().message)
            notes += "foreign " + std::to_string(wparam) + " " + std::to_string(lparam) + " ";
        return message == first_own_message ? 9 : 0;
    });
    const auto handling = handling_of(window.handle);
    const auto [message, instance_cookie] = work_message_of_this_library();
    EXPECT_EQ(message, register_window_message(
                           "InWndProcHandlingManager-F11114B9-D845-458F-828D-30B1800AA4EA"));
    send_message(window.handle, message, instance_cookie); // nothing is queued
    for (const char letter : {'a', 'b', 'c'})
        EXPECT_TRUE(post_to_window(*handling, note(letter)));
    for (const char* sofar : {"a", "ab"}) {
        send_message(window.handle, message, instance_cookie);
        EXPECT_EQ(notes, sofar);
    }
    dispatch_messages(); // two messages more than items
    EXPECT_EQ(notes, "abc");
    send_message(window.handle, message, instance_cookie + 1, 5);
    EXPECT_EQ(notes, "abcforeign " + std::to_string(instance_cookie + 1) + " 5 ");
    EXPECT_EQ(send_message(window.handle, first_own_message), 9);
    EXPECT_THROW(handling->PostToWindow(nullptr), exceptions::error);
    EXPECT_THROW(handling->SendToWindow(nullptr), exceptions::error);
}

TEST_F(WindowWork, KeepsWorkThatTheWindowHasNoRoomForUntilLaterWorkComes) {
    function_window window;
    const auto handling = handling_of(window.handle);
    while (post_message(window.handle, first_own_message)) {
    }
    EXPECT_FALSE(post_to_window(*handling, note('a')));
    dispatch_messages();
    EXPECT_EQ(notes, "");
    for (const char letter : {'b', 'c'})
        EXPECT_TRUE(post_to_window(*handling, note(letter)));
    dispatch_messages();
    EXPECT_EQ(notes, "ab") << "one item for each message";
}

TEST_F(WindowWork, EndsWithTheWindowDropsWhatIsQueuedAndReleasesCookies) {
    auto window = std::make_unique<function_window>([&](auto message, auto, auto) {
        if (message == destroy_message)
            notes += 'd';
        return 0;
    });
    const auto handle = window->handle;
    auto handling = handling_of(handle);
    auto early = handling->KeepHandlerRegistered(cookie('1'));
    const auto late = handling->KeepHandlerRegistered(cookie('2'));
    handling->KeepHandlerRegistered(nullptr);
    post_to_window(*handling, [held = cookie('w')] { ADD_FAILURE() << "its window is gone"; });
    early.reset();
    EXPECT_EQ(notes, "1");

    // Somebody puts a procedure in front of the library's in between.
    static window_procedure previous = nullptr;
    previous =
        replace_window_procedure(handle, [](auto... message) { return previous(message...); });
    window.reset();
    EXPECT_EQ(notes, "1d");
    EXPECT_THROW(handling_of(handle), exceptions::error);
    EXPECT_FALSE(send_to_window(*handling, note('x')));
    EXPECT_FALSE(post_to_window(*handling, note('x')));
    handling.reset();
    EXPECT_EQ(notes, "1d2w");
}

TEST_F(WindowWork, PutsTheWindowsOwnProcedureBackAndReleasesTheLastObjectWithTheWindow) {
    window_handle handle{};
    std::shared_ptr<tasklib::keep_registered> held;
    {
        function_window window([&](auto message, auto, auto) {
            if (message != destroy_message)
                return 0;
            EXPECT_EQ(replace_window_procedure(handle, &call_function), &call_function);
            EXPECT_THROW(handling_of(handle), exceptions::error) << "nothing would end it";
            notes += 'd';
            return 0;
        });
        handle = window.handle;
        held = handling_of(handle)->KeepHandlerRegistered(cookie('c'));
    }
    EXPECT_EQ(notes, "dc");
    held.reset(); // too late to do anything
}

TEST_F(WindowWork, ReleasesExactlyTheStoredCookieAndOutsideOfItsGuard) {
    function_window window;
    const auto handling = handling_of(window.handle);
    signal stored;
    std::shared_ptr<tasklib::keep_registered> by_another_thread;
    auto first = handling->KeepHandlerRegistered(cookie('1'));
    auto second = handling->KeepHandlerRegistered(tasklib::make_reg_cookie([&] {
        watched_thread other([&] {
            by_another_thread = handling->KeepHandlerRegistered(cookie('3'));
            stored.set();
        });
        EXPECT_TRUE(stored.comes());
        notes += '2';
        other.join();
    }));
    const auto kept = cookie('4');
    auto third = handling->KeepHandlerRegistered(kept);
    second.reset();
    EXPECT_EQ(notes, "2");
    first.reset();
    by_another_thread.reset();
    third.reset();
    EXPECT_EQ(notes, "213") << "somebody else holds the last one";
    EXPECT_EQ(kept.use_count(), 1);
    EXPECT_THROW(InWndProcHandling(window.handle, nullptr).KeepHandlerRegistered(kept),
                 std::bad_weak_ptr);
}

TEST_F(WindowWork, TellsTheSenderThatItHasThrownAndKeepsWhatIsQueuedBehindIt) {
    function_window window;
    const auto handling = handling_of(window.handle);
    const auto throws = [] { throw std::runtime_error("broken"); };
    post_to_window(*handling, throws);
    post_to_window(*handling, note('a'));
    watched_thread sender([&] { EXPECT_FALSE(send_to_window(*handling, throws)); });
    EXPECT_TRUE(sender.falls_asleep());
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_THROW(dispatch_messages(), std::runtime_error);
    sender.join();
    EXPECT_EQ(notes, "");
    dispatch_messages();
    EXPECT_EQ(notes, "a");
}

// The window's end waits for the handler, and the handler for the window.
TEST_F(WindowWork, FailsForAHandlerWhoseCookieTheEndOfItsWindowReleases) {
    signal is_inside;
    std::optional<std::intptr_t> first = 1, second = 1;
    std::shared_ptr<tasklib::keep_registered> held;
    {
        function_window window;
        const auto handling = handling_of(window.handle);
        held = handling->KeepHandlerRegistered(events->RegisterEventHandler(
            handling->GetTaskQueue(), "a", nullptr,
            [&, handle = window.handle](auto&&...) {
                is_inside.set();
                first = send_message(handle, first_own_message);
                second = send_message(handle, first_own_message);
            },
            "sends"));
        events->BroadcastEvent("a", nullptr, {}, nullptr);
        ASSERT_TRUE(is_inside.comes());
    }
    EXPECT_EQ(first, std::nullopt);
    EXPECT_EQ(second, std::nullopt);
}

} // namespace
} // namespace zel::event_routing::impl
