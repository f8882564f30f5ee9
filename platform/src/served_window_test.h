// Windows for tests: whose procedure is any callable, with or without a thread.
#pragma once

#include "platform/src/watched_thread_test.h"

#include <platform/window.h>

#include <functional>
#include <utility>

namespace zel::platform {

/// An answer of 0 lets the default procedure go on.
using window_function = std::function<std::intptr_t(window_message message, std::uintptr_t wparam,
                                                    std::intptr_t lparam)>;

/// A window's procedure; the window's context is a window_function.
inline std::intptr_t call_function(window_handle window, window_message message,
                                   std::uintptr_t wparam, std::intptr_t lparam) {
    const auto& function = *static_cast<const window_function*>(window_context(window));
    const std::intptr_t result = function ? function(message, wparam, lparam) : 0;
    return result ? result : default_window_procedure(window, message, wparam, lparam);
}

/// A window of the calling thread.
class function_window {
public:
    explicit function_window(window_function function = nullptr) : function_(std::move(function)) {}
    ~function_window() { destroy_window(handle); }
    function_window(const function_window&) = delete;
    function_window& operator=(const function_window&) = delete;

private:
    window_function function_;

public:
    const window_handle handle = create_window(&call_function, &function_);
};

/// A thread with a window, whose loop it runs until it is told to quit; the end of
/// the thread destroys the window.
class served_window {
public:
    explicit served_window(window_function function = nullptr)
        : function_(std::move(function)), thread_([this] {
              handle_ = create_window(&call_function, &function_);
              made_.set();
              run_message_loop();
          }) {
        made_.wait();
    }
    ~served_window() { end(); }

    window_handle handle() const { return handle_; }
    void end() {
        if (post_message(handle_, quit_message))
            thread_.join();
    }

private:
    window_function function_;
    window_handle handle_{};
    event made_{reset_mode::manual, false};
    watched_thread thread_;
};

} // namespace zel::platform
