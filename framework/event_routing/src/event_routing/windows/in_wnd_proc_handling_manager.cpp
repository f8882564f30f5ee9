#include "framework/event_routing/src/event_routing/windows/in_wnd_proc_handling_manager.h"

#include <algorithm>
#include <fmt/format.h>

namespace zel::event_routing::impl {

namespace {

constinit InWndProcHandlingManager::singleton global;

[[noreturn]] void no_such_window(platform::window_handle window) {
    throw exceptions::error(fmt::format(
        "zel::event_routing::IModule::GetInWndProcHandling: {} {:#x}.",
        platform::window_exists(window) ? "this window is being destroyed:" : "there is no window",
        static_cast<std::uintptr_t>(window)));
}

} // namespace

InWndProcHandlingManager::singleton& InWndProcHandlingManager::Global() {
    return global;
}

InWndProcHandlingManager::~InWndProcHandlingManager() {
    // Windows that are left go on calling the library's procedure: it must stay mapped.
    if (std::ranges::any_of(handlings_,
                            [](const auto& entry) { return platform::window_exists(entry.first); }))
        mi::live_objects::add_object();
}

std::shared_ptr<InWndProcHandling>
InWndProcHandlingManager::GetHandling(platform::window_handle window,
                                      const std::shared_ptr<IEventRouting>& events) {
    // Released without a lock: its cookies may wait for handlers.
    std::shared_ptr<InWndProcHandling> gone;
    return Global().read([&](auto& manager) { return manager.find_or_make(window, events, gone); });
}

std::shared_ptr<InWndProcHandling>
InWndProcHandlingManager::find_or_make(platform::window_handle window,
                                       const std::shared_ptr<IEventRouting>& events,
                                       std::shared_ptr<InWndProcHandling>& gone) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    // One that is being destroyed has its entry until it has been told so.
    if (known != handlings_.end() && platform::window_exists(window))
        return known->second;
    // Left by a procedure in front that has not passed destroy_message on.
    if (known != handlings_.end()) {
        gone = std::move(known->second);
        handlings_.erase(known);
    }
    // Also for the thread that is just destroying the window: nothing would end the entry.
    if (platform::window_thread(window) == platform::no_thread)
        no_such_window(window);
    // All that can fail comes before the window is changed.
    work_message_of_this_library();
    const auto handling = std::make_shared<InWndProcHandling>(window, events->CreateTaskQueue());
    const auto entry = handlings_.emplace(window, handling).first;
    const auto previous = platform::replace_window_procedure(window, &in_wnd_proc);
    if (!previous) {
        handlings_.erase(entry);
        no_such_window(window);
    }
    handling->set_previous(previous);
    return handling;
}

std::shared_ptr<InWndProcHandling> InWndProcHandlingManager::find(platform::window_handle window) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    return known == handlings_.end() ? nullptr : known->second;
}

void InWndProcHandlingManager::forget(platform::window_handle window) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    if (known == handlings_.end())
        return;
    platform::replace_window_procedure(window, known->second->previous());
    handlings_.erase(known);
}

std::intptr_t InWndProcHandlingManager::in_wnd_proc(platform::window_handle window,
                                                    platform::window_message message,
                                                    std::uintptr_t wparam, std::intptr_t lparam) {
    // None for a window that the manager's end has left behind.
    const auto handling =
        global.read_if_created([&](auto& manager) { return manager.find(window); })
            .value_or(nullptr);
    if (!handling)
        return platform::default_window_procedure(window, message, wparam, lparam);
    if (message == platform::destroy_message)
        global.read_if_created([&](auto& manager) { return manager.forget(window), true; });
    const work_message& work = work_message_of_this_library();
    if (message == work.message && wparam == work.instance_cookie) {
        handling->run_work(lparam);
        return 0;
    }
    return handling->previous()(window, message, wparam, lparam);
}

} // namespace zel::event_routing::impl
