#include "framework/event_routing/src/event_routing/windows/in_wnd_proc_handling_manager.h"

#include "framework/serialization/payload_test.h"
#include "generic/tasklib/src/tasks/reg_cookie.h"
#include "platform/src/served_window_test.h"
#include "tests/support/routing.h"

#include <event_routing/window_work.h>

#include <array>

namespace zel::event_routing::impl {
namespace {

using namespace platform;

class WindowWork : public Routing {
protected:
    std::shared_ptr<InWndProcHandling> handling_of(window_handle window) {
        return InWndProcHandlingManager::GetHandling(window, events);
    }
    auto noting(const char* text) {
        return [=, this] { note(text); };
    }
    auto noting_cookie(const char* text) { return tasklib::make_reg_cookie(noting(text)); }
};

TEST_F(WindowWork, HasOneHandlingObjectForAWindowAndNoneForOneThatDoesNotExist) {
    function_window window, other;
    const auto found = found_by_threads([&] { return handling_of(window.handle); });
    EXPECT_EQ(found.size(), 1u);
    const auto handling = *found.begin();
    EXPECT_NE(handling_of(other.handle), handling);
    EXPECT_EQ(handling->previous(), &call_function) << "one procedure in front of the window's";
    EXPECT_NE(handling->GetTaskQueue(), nullptr);
    EXPECT_EQ(serialization::failure_of([&] { handling_of(window_handle{0xfedcba9}); }),
              "zel::event_routing::IModule::GetInWndProcHandling: there is no window 0xfedcba9.");
}

TEST_F(WindowWork, RunsWhatManyThreadsPostInTheOrderOfEachOnTheWindowsThread) {
    std::array<int, 2> last{};
    served_window window;
    const auto handling = handling_of(window.handle());
    const auto post = [&](std::size_t poster) {
        for (int value = 1; value <= 1'000; ++value)
            EXPECT_TRUE(post_to_window(*handling, [&, poster, value] {
                EXPECT_EQ(window_thread(window.handle()), this_thread_id());
                EXPECT_EQ(value, ++last.at(poster));
            }));
    };
    std::jthread other([&] { post(0); });
    post(1);
    other.join();
    int seen = 0;
    EXPECT_TRUE(send_to_window(*handling, [&] { seen = 1; })) << "does not wait for the posted";
    EXPECT_EQ(seen, 1);
    window.end();
    EXPECT_EQ(last, (std::array{1'000, 1'000}));
}

TEST_F(WindowWork, RunsOneQueuedItemPerMessageAndPassesOnMessagesOfOthers) {
    function_window window([&](auto message, auto wparam, auto lparam) -> std::intptr_t {
        if (message == work_message_of_this_library().message)
            note("foreign " + std::to_string(wparam) + " " + std::to_string(lparam));
        return message == first_own_message ? 9 : 0;
    });
    const auto handling = handling_of(window.handle);
    const auto [message, instance_cookie] = work_message_of_this_library();
    EXPECT_EQ(message, register_window_message(
                           "InWndProcHandlingManager-F11114B9-D845-458F-828D-30B1800AA4EA"));
    send_message(window.handle, message, instance_cookie); // nothing is queued
    for (const char* text : {"a", "b", "c"})
        EXPECT_TRUE(post_to_window(*handling, noting(text)));
    for (const char* first : {"a", "b"}) {
        send_message(window.handle, message, instance_cookie);
        EXPECT_EQ(taken_notes(), first);
    }
    dispatch_messages(); // two messages more than items
    EXPECT_EQ(taken_notes(), "c");
    send_message(window.handle, message, instance_cookie + 1, 5);
    EXPECT_EQ(taken_notes(), "foreign " + std::to_string(instance_cookie + 1) + " 5");
    EXPECT_EQ(send_message(window.handle, first_own_message), 9);
    post_to_window(*handling, [] { throw std::runtime_error("broken"); });
    post_to_window(*handling, noting("behind"));
    EXPECT_THROW(dispatch_messages(), std::runtime_error);
    dispatch_messages();
    EXPECT_EQ(taken_notes(), "behind");
    EXPECT_THROW(handling->PostToWindow(nullptr), exceptions::error);
    EXPECT_THROW(handling->SendToWindow(nullptr), exceptions::error);
}

TEST_F(WindowWork, KeepsWorkThatTheWindowHasNoRoomForUntilLaterWorkComes) {
    function_window window;
    const auto handling = handling_of(window.handle);
    while (post_message(window.handle, first_own_message)) {
    }
    EXPECT_FALSE(post_to_window(*handling, noting("a")));
    dispatch_messages();
    EXPECT_EQ(taken_notes(), "");
    for (const char* text : {"b", "c"})
        EXPECT_TRUE(post_to_window(*handling, noting(text)));
    dispatch_messages();
    EXPECT_EQ(taken_notes(), "a b") << "one item for each message";
}

TEST_F(WindowWork, EndsWithTheWindowDropsWhatIsQueuedAndReleasesCookies) {
    window_handle handle{};
    auto window = std::make_unique<function_window>([&](auto message, auto...) {
        if (message == destroy_message) {
            EXPECT_EQ(replace_window_procedure(handle, &call_function), &call_function);
            EXPECT_THROW(handling_of(handle), exceptions::error) << "nothing would end it";
            note("destroyed");
        }
        return 0;
    });
    handle = window->handle;
    auto handling = handling_of(handle);
    auto early = handling->KeepHandlerRegistered(noting_cookie("1"));
    auto late = handling->KeepHandlerRegistered(noting_cookie("2"));
    handling->KeepHandlerRegistered(nullptr).reset();
    post_to_window(*handling,
                   [held = noting_cookie("work")] { ADD_FAILURE() << "its window is gone"; });
    early.reset();
    EXPECT_EQ(taken_notes(), "1");

    // Somebody puts a procedure in front of the library's in between.
    static window_procedure previous = nullptr;
    previous =
        replace_window_procedure(handle, [](auto... message) { return previous(message...); });
    window.reset();
    EXPECT_EQ(taken_notes(), "destroyed");
    EXPECT_THROW(handling_of(handle), exceptions::error);
    EXPECT_FALSE(send_to_window(*handling, noting("sent")));
    EXPECT_FALSE(post_to_window(*handling, noting("posted")));
    handling.reset();
    EXPECT_EQ(taken_notes(), "2 work");
    late.reset(); // too late to do anything
}

// Whoever was in front then may take itself out later, and put back what it had replaced.
TEST_F(WindowWork, GoesRoundInNoCircleWhereAWindowOutlivesADestroyMessage) {
    static std::array<window_procedure, 2> replaced;
    constexpr std::array<window_procedure, 2> in_front{
        [](auto... message) { return replaced[0](message...); },
        [](auto... message) { return replaced[1](message...); }};
    for (std::size_t layers = 1; layers <= in_front.size(); ++layers) {
        auto window = std::make_unique<function_window>(
            [&](auto message, auto...) { return note(std::to_string(message)), 9; });
        const window_handle handle = window->handle;
        auto handling = handling_of(handle);
        for (std::size_t i = 0; i < layers; ++i)
            replaced.at(i) = replace_window_procedure(handle, in_front.at(i));
        EXPECT_EQ(send_message(handle, destroy_message), 9);
        EXPECT_EQ(replace_window_procedure(handle, replaced.at(layers - 1)), &call_function);
        EXPECT_EQ(send_message(handle, first_own_message), 9) << "no work, and nothing is lost";
        EXPECT_NE(handling_of(handle), handling);
        handling = handling_of(handle);
        EXPECT_EQ(send_message(handle, first_own_message + 1), 9);
        EXPECT_TRUE(send_to_window(*handling, noting("work")));
        EXPECT_EQ(taken_notes(), "2 1024 1025 work");
        window.reset();
        EXPECT_EQ(taken_notes(), "2");
    }
}

TEST_F(WindowWork, ReleasesExactlyTheStoredCookieAndOutsideOfItsGuard) {
    function_window window;
    const auto handling = handling_of(window.handle);
    cookie by_another_thread;
    auto first = handling->KeepHandlerRegistered(noting_cookie("1"));
    auto second = handling->KeepHandlerRegistered(tasklib::make_reg_cookie([&] {
        const auto keep = [&] { return handling->KeepHandlerRegistered(noting_cookie("3")); };
        std::jthread([&] { by_another_thread = keep(); }).join();
        note("2");
    }));
    const auto kept = noting_cookie("4");
    auto third = handling->KeepHandlerRegistered(kept);
    second.reset();
    EXPECT_EQ(taken_notes(), "2");
    first.reset();
    by_another_thread.reset();
    third.reset();
    EXPECT_EQ(taken_notes(), "1 3") << "somebody else holds the last one";
    EXPECT_EQ(kept.use_count(), 1);
    EXPECT_THROW(
        static_cast<void>(InWndProcHandling(window.handle, nullptr).KeepHandlerRegistered(kept)),
        std::bad_weak_ptr);
}

TEST_F(WindowWork, GoesBothWaysAtOnce) {
    served_window one, other;
    const auto to_one = handling_of(one.handle()), to_other = handling_of(other.handle());
    std::atomic<int> done{0};
    const auto goes = [&](auto& there, auto& back) {
        for (int i = 0; i < 1'000; ++i)
            EXPECT_TRUE(send_to_window(*there, [&] { send_to_window(*back, [&] { ++done; }); }));
    };
    std::jthread also([&] { goes(to_one, to_other); });
    goes(to_other, to_one);
    also.join();
    EXPECT_EQ(done, 2'000);
}

// The window's end waits for the handler, and the handler for the window.
TEST_F(WindowWork, FailsForAHandlerWhoseCookieTheEndOfItsWindowReleases) {
    std::optional<std::intptr_t> first = 1, second = 1;
    cookie held, released;
    {
        function_window window;
        const auto handling = handling_of(window.handle);
        const auto sends = [&, handle = window.handle](auto&&...) {
            running.set();
            first = send_message(handle, first_own_message);
            second = send_message(handle, first_own_message);
        };
        held = handling->KeepHandlerRegistered(
            listen("a", nullptr, sends, "sends", handling->GetTaskQueue()));
        released = handling->KeepHandlerRegistered(noting_cookie("released"));
        broadcast("a");
        ASSERT_TRUE(running.comes());
    }
    EXPECT_EQ(taken_notes(), "released") << "nobody holds the handling object any more";
    EXPECT_EQ(first, std::nullopt);
    EXPECT_EQ(second, std::nullopt);
}

} // namespace
} // namespace zel::event_routing::impl
