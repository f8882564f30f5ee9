#include "framework/module_interface/module_lifetime.h"
#include "libraries/dll_loader/dll_loader_impl.h"

extern "C" ZEL_EXPORT zel::mi::IDllLoader* GetDllLoader() {
    // Never destroyed: libraries are given back until the process is gone.
    static auto* const loader = new zel::mi::DllLoaderImpl;
    return loader;
}

namespace zel::dll_loader::detail {

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<mi::ResidentLifetime>();
}

} // namespace zel::dll_loader::detail
