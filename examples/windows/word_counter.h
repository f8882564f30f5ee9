// Counts words on threads of the task library and prints the results in a window's
// thread, which is that of the loop.
#pragma once

#include <event_routing/client.h>
#include <platform/window.h>

#include <string>

namespace zel::examples {

/// Made, used and destroyed on one thread, which takes the messages. The loop is to
/// quit when the input has ended and everything is printed.
class word_counter {
public:
    word_counter();
    ~word_counter();
    word_counter(const word_counter&) = delete;
    word_counter& operator=(const word_counter&) = delete;

    /// Takes what there is at a file descriptor that can be read; false at its end, and when
    /// it cannot be read any more, which ends the loop with 1.
    bool read_from(int descriptor);

private:
    void take_line(const std::string& line);
    void print(const std::string& line, std::size_t words);
    void quit_when_done() const;

    const std::shared_ptr<event_routing::IEventRouting> events_;
    const platform::window_handle window_;
    std::shared_ptr<event_routing::IInWndProcHandling> window_work_;
    std::shared_ptr<tasklib::keep_registered> registered_;
    std::string unfinished_;
    std::size_t to_print_ = 0;
    bool has_ended_ = false;
    int exit_code_ = 0;
};

} // namespace zel::examples
