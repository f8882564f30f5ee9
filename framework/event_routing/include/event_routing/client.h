// The module for clients, with the versions of what they get already checked.
//
//     auto module = zel::event_routing::get_module();
//     auto events = zel::event_routing::get_event_routing(*module);
//
// Throws zel::WrongIfcVersion when the library at hand was built for another
// version of an interface, and whatever making the module threw.
#pragma once

#include <event_routing/event_handling_info.h>
#include <event_routing/event_routing.h>
#include <event_routing/in_wnd_proc_handling.h>
#include <event_routing/module.h>
#include <event_routing/request_handling_info.h>
#include <event_routing/request_routing.h>
#include <event_routing/snowball_handling_info.h>
#include <event_routing/snowball_routing.h>

#include <framework/module_interface/lifetime_service.h>
#include <framework/module_interface/version_check.h>
#include <tasklib/keep_registered.h>

namespace zel::event_routing {

namespace detail {

inline std::shared_ptr<IModule> checked(std::shared_ptr<IModule> module) {
    RequireInterface(*module);
    // So that the loader does not unmap the caller's library under its objects.
    mi::announce_this_image();
    return module;
}

} // namespace detail

/// The module of this process, made by the first caller.
inline std::shared_ptr<IModule> get_module() {
    return detail::checked(detail::CreateModule());
}

/// The module if somebody has made it and it has not ended, else null. Makes none, so it is
/// for code that may run when the process ends, or that has nothing to say unless others
/// already use the library. Throws zel::WrongIfcVersion.
inline std::shared_ptr<IModule> find_module() {
    auto module = detail::FindModule();
    return module ? detail::checked(std::move(module)) : nullptr;
}

/// The default event routing service.
inline std::shared_ptr<IEventRouting> get_event_routing(IModule& module) {
    auto service = module.GetEventRouting();
    RequireInterface(*service);
    return service;
}

/// The event routing instance of that name, made on first request.
inline std::shared_ptr<IEventRouting> get_named_event_routing(IModule& module,
                                                              const std::string& name) {
    auto service = module.GetNamedEventRouting(name);
    RequireInterface(*service);
    return service;
}

/// The request routing service.
inline std::shared_ptr<IRequestRouting> get_request_routing(IModule& module) {
    auto service = module.GetRequestRouting();
    RequireInterface(*service);
    return service;
}

/// The snowball routing service.
inline std::shared_ptr<ISnowballRouting> get_snowball_routing(IModule& module) {
    auto service = module.GetSnowballRouting();
    RequireInterface(*service);
    return service;
}

/// What runs work on the thread of a window. Throws what GetInWndProcHandling throws.
inline std::shared_ptr<IInWndProcHandling>
get_in_wnd_proc_handling(IModule& module, platform::window_handle window) {
    auto handling = module.GetInWndProcHandling(window);
    RequireInterface(*handling);
    return handling;
}

} // namespace zel::event_routing
