// Which windows have a handling object, and the procedure that is put in front of
// theirs.
#pragma once

#include "framework/event_routing/src/event_routing/windows/in_wnd_proc_handling.h"
#include "framework/lifetime/basic_singleton.h"

#include <event_routing/event_routing.h>

#include <map>

namespace zel::event_routing::impl {

class InWndProcHandlingManager {
public:
    using singleton = lifetime::basic_singleton<InWndProcHandlingManager,
                                                lifetime::const_longevity_traits<200999>>;
    /// The manager of the process. Its readers hold the cell's guard, so that it does
    /// not end meanwhile.
    static singleton& Global();

    InWndProcHandlingManager() = default;
    ~InWndProcHandlingManager();
    InWndProcHandlingManager(const InWndProcHandlingManager&) = delete;
    InWndProcHandlingManager& operator=(const InWndProcHandlingManager&) = delete;

    /// The handling object of the window, made by the first call. Throws
    /// exceptions::error for a window that does not exist, or that is being destroyed and
    /// had none before.
    static std::shared_ptr<InWndProcHandling>
    GetHandling(platform::window_handle window, const std::shared_ptr<IEventRouting>& events);

private:
    std::shared_ptr<InWndProcHandling> find_or_make(platform::window_handle window,
                                                    const std::shared_ptr<IEventRouting>& events,
                                                    std::shared_ptr<InWndProcHandling>& gone);
    static std::intptr_t in_wnd_proc(platform::window_handle window,
                                     platform::window_message message, std::uintptr_t wparam,
                                     std::intptr_t lparam);
    std::shared_ptr<InWndProcHandling> find(platform::window_handle window);
    void forget(platform::window_handle window);

    // Held while a window's procedure is replaced, so that the new one finds its object.
    platform::critical_section guard_;
    std::map<platform::window_handle, std::shared_ptr<InWndProcHandling>>
        handlings_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
