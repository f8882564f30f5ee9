#include "examples/directory_index/report_window.h"

#include "examples/directory_index/console.h"

#include <event_routing/client.h>
#include <event_routing/window_work.h>
#include <platform/diagnostics.h>
#include <platform/window.h>

#include <exception>
#include <utility>

namespace directory_index {

using namespace zel::event_routing;
using zel::platform::guarded;

report_window::report_window() {
    std::promise<window_work> made;
    auto work = made.get_future();
    thread_ = std::jthread(&run, std::move(made));
    work_ = work.get();
}

report_window::~report_window() {
    post_to_window(*work_, [] { zel::platform::quit_message_loop(0); });
}

// The window goes with its thread.
void report_window::run(std::promise<window_work> made) {
    const auto failure = guarded([&] {
        made.set_value(get_in_wnd_proc_handling(*get_module(), zel::platform::create_window()));
    });
    if (failure)
        made.set_exception(failure);
    else
        zel::platform::run_message_loop();
}

void report_window::show(const std::string& text) {
    std::exception_ptr failure; // over there it would end the loop
    if (!send_to_window(*work_, [&] { failure = guarded([&] { print(text); }); }))
        throw zel::exceptions::error("The window of the report is gone");
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace directory_index
