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
