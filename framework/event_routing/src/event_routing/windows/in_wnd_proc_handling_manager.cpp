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
                            [](const auto& one) { return platform::window_exists(one.first); }))
        mi::live_objects::add_object();
}

std::shared_ptr<InWndProcHandling>
InWndProcHandlingManager::GetHandling(platform::window_handle window,
                                      const std::shared_ptr<IEventRouting>& events) {
    // What is left over is released here, without a lock: its cookies may wait for handlers.
    Global().read([&](auto& manager) { return manager.take_left_over(window); });
    return Global().read([&](auto& manager) { return manager.find_or_make(window, events); });
}

// A procedure in front may have kept destroy_message from the library's.
std::shared_ptr<InWndProcHandling>
InWndProcHandlingManager::take_left_over(platform::window_handle window) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    if (known == handlings_.end() || platform::window_exists(window))
        return nullptr;
    const auto gone = std::move(known->second.handling);
    handlings_.erase(known);
    return gone;
}

std::shared_ptr<InWndProcHandling>
InWndProcHandlingManager::find_or_make(platform::window_handle window,
                                       const std::shared_ptr<IEventRouting>& events) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    // One that is being destroyed has its handling object until it has been told so.
    if (known != handlings_.end() && known->second.handling && platform::window_exists(window))
        return known->second.handling;
    // Also for the thread that is just destroying the window: nothing would end the entry.
    if (platform::window_thread(window) == platform::no_thread)
        no_such_window(window);
    // All that can fail comes before the window is changed.
    work_message_of_this_library();
    const auto handling = std::make_shared<InWndProcHandling>(window, events->CreateTaskQueue());
    std::erase_if(handlings_, [](const auto& other) {
        return !other.second.handling && !platform::window_exists(other.first);
    });
    entry& added = handlings_[window];
    added.handling = handling;
    const auto previous = platform::replace_window_procedure(window, &in_wnd_proc);
    if (!previous) {
        added.handling = nullptr;
        no_such_window(window);
    }
    handling->set_previous(previous == &in_wnd_proc ? added.procedure_behind() : previous,
                           added.behind);
    return handling;
}

InWndProcHandlingManager::entry InWndProcHandlingManager::find(platform::window_handle window) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    return known == handlings_.end() ? entry() : known->second;
}

InWndProcHandlingManager::entry InWndProcHandlingManager::forget(platform::window_handle window) {
    const platform::scoped_lock inside(guard_);
    const auto known = handlings_.find(window);
    if (known == handlings_.end())
        return {};
    const entry before = known->second;
    if (!before.handling)
        return before;
    platform::replace_window_procedure(window, before.handling->previous());
    const bool goes_on = platform::window_thread(window) != platform::no_thread;
    if (before.behind || goes_on)
        known->second = {nullptr, before.behind ? before.behind : before.handling->previous()};
    else
        handlings_.erase(known);
    return before;
}

std::intptr_t InWndProcHandlingManager::in_wnd_proc(platform::window_handle window,
                                                    platform::window_message message,
                                                    std::uintptr_t wparam, std::intptr_t lparam) {
    // Nothing is known of a window that the manager's end has left behind.
    const entry known = global
                            .read_if_created([&](auto& manager) {
                                return message == platform::destroy_message ? manager.forget(window)
                                                                            : manager.find(window);
                            })
                            .value_or(entry());
    if (!known.handling)
        return known.procedure_behind()(window, message, wparam, lparam);
    const work_message& work = work_message_of_this_library();
    if (message == work.message && wparam == work.instance_cookie) {
        known.handling->run_work(lparam);
        return 0;
    }
    return known.handling->pass_on({message, wparam, lparam});
}

} // namespace zel::event_routing::impl
