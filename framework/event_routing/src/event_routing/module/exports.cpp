// The doors of the library.
#include "framework/event_routing/src/event_routing/module/module_reference.h"
#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"

#include <platform/diagnostics.h>

#include <fmt/format.h>

namespace zel::event_routing {

namespace {

// Ends before everything of lower longevity that the services rely on.
constexpr int module_longevity = 201008;

constinit log::source_position
    module_is_held("event_routing/framework/event_routing/src/event_routing/exports.cpp", 21);

class wrapper : public mi::ModuleWrapper<impl::ThisModule, IModule,
                                         &detail::GetModuleLifetimeObject, mi::exit_rank::routing> {
public:
    /// Says who may be to blame before it refuses.
    void end() {
        if (const auto holders = module().use_count() - 1; holders > 0)
            platform::guarded([&] { tell_of(holders); });
        ModuleWrapper::end();
    }

private:
    void tell_of(long holders) const {
        impl::routing_log.write(log::severity::failed_operation, module_is_held, [&] {
            auto& held = static_cast<impl::ThisModule&>(*module());
            return fmt::format("The module cannot end: {} {} it. Of the library {} objects are "
                               "alive. Handlers that are registered: {}",
                               holders, holders == 1 ? "reference holds" : "references hold",
                               mi::live_objects::current().objects, held.describe_registrations());
        });
    }
};
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

std::shared_ptr<IModule> FindModule() {
    return module_singleton.read_if_created([](const wrapper& w) { return w.module(); })
        .value_or(nullptr);
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
