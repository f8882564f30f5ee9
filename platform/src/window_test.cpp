#include "platform/src/served_window_test.h"

#include <platform/diagnostics.h>

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace zel::platform {
namespace {

constexpr window_message number = first_own_message, next = number + 1;

// Notes what it is told, which may be to throw, to end the loop or to post.
struct noting_window : function_window {
    noting_window()
        : function_window([this](auto message, auto letter, auto) -> std::intptr_t {
              if (message != number)
                  return 0;
              order += static_cast<char>(letter);
              if (letter == '!')
                  throw std::runtime_error("broken");
              if (letter == 'q')
                  quit_message_loop(3);
              if (letter == '+')
                  post("-");
              return 7;
          }) {}
    std::optional<std::intptr_t> send(char letter) { return send_message(handle, number, letter); }
    void post(std::string_view letters) {
        for (const char letter : letters)
            EXPECT_TRUE(post_message(handle, number, letter));
    }
    std::string order;
};

TEST(Window, RefusesPostedMessagesBeyondItsRoomAndLeavesThoseThatComeMeanwhile) {
    noting_window window, second;
    std::string all(most_posted_messages, 'p');
    all.front() = '+';
    window.post(all);
    EXPECT_FALSE(post_message(second.handle, number)) << "one queue for all windows of a thread";
    for (const auto& handled : {all, all + '-'}) {
        EXPECT_EQ(dispatch_messages(), std::nullopt);
        EXPECT_EQ(window.order, handled);
    }
}

TEST(Window, HandlesWhatItSendsToItselfAtOnceAndSentMessagesBeforePostedOnes) {
    noting_window window;
    window.post("p");
    EXPECT_EQ(window.send('s'), 7);
    watched_thread sender([&] { EXPECT_EQ(window.send('t'), 7); });
    EXPECT_TRUE(sender.falls_asleep());
    EXPECT_EQ(window.order, "s");
    EXPECT_EQ(dispatch_messages(), std::nullopt);
    EXPECT_EQ(window.order, "stp");
}

TEST(Window, LetsExceptionsLeaveTheDispatchAndFailsTheSender) {
    noting_window window;
    window.post("!p");
    EXPECT_THROW(dispatch_messages(), std::runtime_error);
    watched_thread sender([&] { EXPECT_EQ(window.send('!'), std::nullopt); });
    EXPECT_TRUE(sender.falls_asleep());
    EXPECT_THROW(dispatch_messages(), std::runtime_error);
    sender.join();
    dispatch_messages();
    EXPECT_EQ(window.order, "!!p") << "what was queued behind it is still there";
    EXPECT_THROW(window.send('!'), std::runtime_error) << "on the own thread";
}

TEST(Window, EndsALoopAtOnceOrBehindWhatIsPosted) {
    noting_window window;
    window.post("aqb");
    EXPECT_TRUE(post_message(window.handle, quit_message, 4));
    window.post("c");
    EXPECT_EQ(run_message_loop(), 3);
    EXPECT_EQ(window.order, "aq");
    EXPECT_EQ(dispatch_messages(), 4);
    EXPECT_EQ(window.order, "aqb");
    EXPECT_EQ(dispatch_messages(), std::nullopt);
    EXPECT_EQ(window.order, "aqbc");
}

TEST(Window, WhenDestroyedDropsItsMessagesLetsSendersGoAndIsNotFoundAnyMore) {
    std::string order;
    window_handle handle{};
    const auto note = [&](auto message, auto, auto) -> std::intptr_t {
        order += std::to_string(message) + " ";
        if (message == destroy_message) {
            EXPECT_FALSE(destroy_window(handle));
            EXPECT_FALSE(post_message(handle, number));
            EXPECT_EQ(window_thread(handle), no_thread);
            EXPECT_EQ(send_message(handle, number), 5) << "its own thread may";
        }
        return 5;
    };
    auto window = std::make_unique<function_window>(note);
    handle = window->handle;
    EXPECT_TRUE(post_message(handle, next));
    EXPECT_EQ(window_thread(handle), this_thread_id());
    watched_thread sender([&] {
        EXPECT_FALSE(destroy_window(handle)) << "another thread's";
        EXPECT_EQ(send_message(handle, next), std::nullopt);
    });
    EXPECT_TRUE(sender.falls_asleep());
    window.reset();
    sender.join();
    EXPECT_EQ(dispatch_messages(), std::nullopt);
    EXPECT_EQ(order, "2 1024 ");
    EXPECT_FALSE(post_message(handle, number));
    EXPECT_EQ(send_message(handle, number), std::nullopt);
    EXPECT_EQ(replace_window_procedure(handle, &default_window_procedure), nullptr);
    EXPECT_EQ(window_context(handle), nullptr);
    EXPECT_FALSE(destroy_window(handle));
    EXPECT_NE(function_window().handle, handle);
}

// A handler that one window's end waits for may be sending to another one.
TEST(Window, IsDestroyedByTheEndOfItsThreadWhichReportsWhatThatThrowsAndLetsNobodyIn) {
    std::atomic<int> reports{0};
    const exception_observer observer(
        [&](auto code, auto) { reports += code == diagnostic::exception_report; });
    std::string order;
    signal ends, sent;
    window_handle handle{};
    const window_function first = [&](auto message, auto, auto) -> std::intptr_t {
        order += 'a';
        EXPECT_EQ(message, destroy_message);
        EXPECT_THROW(create_window(), std::logic_error);
        throw std::runtime_error("broken");
    };
    const window_function latest = [&](auto, auto, auto) {
        ends.set();
        EXPECT_TRUE(sent.comes());
        return order += 'b', 0;
    };
    std::optional<watched_thread> sender;
    watched_thread owner([&] {
        handle = create_window(&call_function, const_cast<window_function*>(&first));
        create_window(&call_function, const_cast<window_function*>(&latest));
        sender.emplace([&] {
            EXPECT_EQ(send_message(handle, number), std::nullopt);
            EXPECT_TRUE(ends.comes());
            EXPECT_EQ(send_message(handle, number), std::nullopt) << "is still to be destroyed";
            sent.set();
        });
        EXPECT_TRUE(sender->falls_asleep());
    });
    owner.join();
    EXPECT_EQ(order, "ba");
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(window_thread(handle), no_thread);
}

// The sender is thrown out of its wait by a message that it handles meanwhile.
TEST(Window, TakesItsMessageBackOrWaitsForItsEndWhenItsSenderIsThrownOut) {
    std::atomic<window_handle> to_sender;
    const auto send_from_a_window = [&](window_handle target) {
        noting_window own;
        to_sender = own.handle;
        EXPECT_THROW(send_message(target, number), std::runtime_error);
    };
    int handled = 0;
    const auto throw_the_sender_out = [&](auto message, auto, auto) -> std::intptr_t {
        if (message != number)
            return 0;
        EXPECT_EQ(send_message(to_sender, number, '!'), std::nullopt);
        EXPECT_EQ(send_message(to_sender, number), std::nullopt) << "it waits for us only";
        return ++handled;
    };
    served_window target(throw_the_sender_out);
    send_from_a_window(target.handle());
    EXPECT_EQ(handled, 1);
    // Nobody takes what is sent to this one before the sender is gone.
    function_window idle(throw_the_sender_out);
    watched_thread sender([&] { send_from_a_window(idle.handle); });
    EXPECT_TRUE(sender.falls_asleep());
    watched_thread thrower([&] { EXPECT_EQ(send_message(to_sender, number, '!'), std::nullopt); });
    thrower.join();
    sender.join();
    dispatch_messages();
    EXPECT_EQ(handled, 1);
}

TEST(RegisteredMessage, IsTheSameForTheSameTextAndWithinItsRange) {
    const auto same = register_window_message("same");
    EXPECT_GE(same, first_registered_message);
    EXPECT_EQ(register_window_message(""), 0u);
    window_message last = 0;
    for (int i = 0; i <= 0x4000; ++i)
        if (const auto taken = register_window_message("text " + std::to_string(i)))
            last = taken;
    EXPECT_EQ(last, last_registered_message);
    EXPECT_EQ(register_window_message("too late"), 0u);
    EXPECT_EQ(register_window_message("same"), same);
}

} // namespace
} // namespace zel::platform
