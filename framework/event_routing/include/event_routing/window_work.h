// Callables as work for a window's thread.
//
//     post_to_window(*window_work, [text] { set_title(text); });
//     if (!send_to_window(*window_work, [&] { title = get_title(); }))
//         return; // the window is gone, or the callable threw
#pragma once

#include <event_routing/in_wnd_proc_handling.h>

#include <type_traits>
#include <utility>

namespace zel::event_routing {

namespace detail {

template <class Callable>
class window_work final : public IInWndProcWorkItem {
public:
    explicit window_work(Callable callable) : callable_(std::forward<Callable>(callable)) {}

    void Execute() override {
        callable_();
        has_run_ = true;
    }
    bool has_run() const noexcept { return has_run_; }

private:
    Callable callable_; // a reference for what is sent
    bool has_run_ = false;
};

} // namespace detail

/// Queues the callable, see IInWndProcHandling::PostToWindow. It is destroyed on the
/// window's thread after its run, or with the handling object. False when no message could
/// announce it to the window. Even then it stays queued, and runs when later work is
/// announced, so do not post it again.
template <class Callable>
bool post_to_window(IInWndProcHandling& handling, Callable&& callable) {
    using work = detail::window_work<std::decay_t<Callable>>;
    return handling.PostToWindow(std::make_shared<work>(std::forward<Callable>(callable))) != 0;
}

/// Calls the callable on the window's thread and waits for it. True when it has run to
/// its end, false when it has not run or has thrown on the window's thread.
template <class Callable>
bool send_to_window(IInWndProcHandling& handling, Callable&& callable) {
    const auto item = std::make_shared<detail::window_work<Callable&>>(callable);
    handling.SendToWindow(item);
    return item->has_run();
}

} // namespace zel::event_routing
