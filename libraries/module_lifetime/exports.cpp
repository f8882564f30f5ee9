#include "framework/module_interface/module_lifetime.h"
#include "libraries/module_lifetime/lifetime_service_impl.h"

#include <cstdlib>

namespace {

using zel::mi::IModuleLifetimeService;
using zel::mi::LifetimeServiceImpl;

// Made once and never destroyed: it is asked for until the process is gone.
LifetimeServiceImpl& service() {
    static LifetimeServiceImpl* const instance = [] {
        auto* const made = new LifetimeServiceImpl;
        std::atexit([] { service().end_process(); });
        return made;
    }();
    return *instance;
}

} // namespace

extern "C" ZEL_EXPORT IModuleLifetimeService* GetModuleLifetimeDll() {
    return &service();
}

namespace zel::module_lifetime::detail {

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<mi::ResidentLifetime>();
}

} // namespace zel::module_lifetime::detail
