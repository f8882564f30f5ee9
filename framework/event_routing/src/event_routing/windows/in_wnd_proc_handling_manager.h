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
    struct entry {
        std::shared_ptr<InWndProcHandling> handling; // none once the window was told of its end
        // Set where a window has outlived a destroy message, which anybody may send: its own
        // procedure. Others may still have the library's in their hands, and put it back.
        platform::window_procedure behind = nullptr;

        /// What the library's procedure leads to without a handling object.
        platform::window_procedure procedure_behind() const noexcept {
            return behind ? behind : &platform::default_window_procedure;
        }
    };

    /// Takes the handling object out if the window is gone.
    std::shared_ptr<InWndProcHandling> take_left_over(platform::window_handle window);
    std::shared_ptr<InWndProcHandling> find_or_make(platform::window_handle window,
                                                    const std::shared_ptr<IEventRouting>& events);
    static std::intptr_t in_wnd_proc(platform::window_handle window,
                                     platform::window_message message, std::uintptr_t wparam,
                                     std::intptr_t lparam);
    entry find(platform::window_handle window);
    /// Puts the window's own procedure back. Returns the entry as it was.
    entry forget(platform::window_handle window);

    // Held while a window's procedure is replaced, so that the new one finds its object.
    platform::critical_section guard_;
    std::map<platform::window_handle, entry> handlings_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
