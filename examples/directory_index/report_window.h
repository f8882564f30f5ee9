// Showing the report on the thread of a window, as programs with a user interface do.
#pragma once

#include <event_routing/in_wnd_proc_handling.h>

#include <future>
#include <memory>
#include <string>
#include <thread>

namespace directory_index {

/// A window with a thread of its own, which ends with the object.
class report_window {
public:
    /// Throws what keeps the window from being made.
    report_window();
    ~report_window();
    report_window(const report_window&) = delete;
    report_window& operator=(const report_window&) = delete;

    /// Has the window's thread print the text and waits for it: nothing that follows can
    /// overtake it. Throws what `print` throws.
    void show(const std::string& text);

private:
    using window_work = std::shared_ptr<zel::event_routing::IInWndProcHandling>;
    static void run(std::promise<window_work> made);

    window_work work_;
    std::jthread thread_; // last: the window ends before work_ is let go
};

} // namespace directory_index
