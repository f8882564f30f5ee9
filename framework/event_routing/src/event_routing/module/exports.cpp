// The four doors of the library.
#include "framework/event_routing/src/event_routing/module/module_reference.h"
#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"

namespace zel::event_routing {

namespace {

// Ends before everything of lower longevity that the services rely on.
constexpr int module_longevity = 201008;

using wrapper = mi::ModuleWrapper<impl::ThisModule, IModule, &detail::GetModuleLifetimeObject,
                                  mi::exit_rank::routing>;
constinit lifetime::basic_singleton<wrapper, lifetime::const_longevity_traits<module_longevity>>
    module_singleton;

class routing_lifetime final : public mi::ModuleLifetime {
public:
    // Clients hold services rather than the module, so no answer from here could
    // be relied on; the end of life looks at the objects themselves.
    bool IsModuleUsed() const override { return false; }
};

} // namespace

namespace detail {

std::shared_ptr<IModule> CreateModule() {
    return module_singleton.read([](const wrapper& w) { return w.module(); });
}

std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<routing_lifetime>();
}

} // namespace detail

} // namespace zel::event_routing

zel::event_routing::IModule* CreateModuleRaw() {
    return zel::event_routing::module_singleton.read(
        [](const auto& wrapper) { return wrapper.module().get(); });
}

void on_morna_dll_unload() {
    zel::lifetime::run_end_of_life_actions(zel::lifetime::host_threshold);
}
