#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"
#include "libraries/tasks_core/tasks_core_module_impl.h"

namespace zel::tasklib::detail {

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();
ZEL_EXPORT std::shared_ptr<tasks_core_module> CreateTasksCoreModule();

namespace {

using wrapper = mi::ModuleWrapper<tasks_core_module_impl, tasks_core_module,
                                  &GetModuleLifetimeObject, mi::exit_rank::neighbour>;
constinit lifetime::basic_singleton<wrapper, lifetime::const_longevity_traits<201008>> module;

class tasks_core_lifetime final : public mi::ModuleLifetime {
public:
    bool IsModuleUsed() const override {
        // Besides what the library keeps itself, every object is somebody's: the
        // ended state of a task above all.
        const int own = module.read_if_created([](const wrapper&) { return 1; }).value_or(0) +
                        tasks_core_module_impl::own_objects();
        return mi::live_objects::current().objects > own ||
               tasks_core_module_impl::are_threads_used() ||
               module.read_if_created([](const wrapper& w) { return w.module().use_count() > 1; })
                   .value_or(false);
    }
};

} // namespace

std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<tasks_core_lifetime>();
}

std::shared_ptr<tasks_core_module> CreateTasksCoreModule() {
    return module.read([](const wrapper& w) { return w.module(); });
}

} // namespace zel::tasklib::detail
