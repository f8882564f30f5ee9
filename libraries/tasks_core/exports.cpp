#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"
#include "libraries/tasks_core/tasks_core_module_impl.h"

namespace zel::tasklib::detail {

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();
ZEL_EXPORT std::shared_ptr<tasks_core_module> CreateTasksCoreModule();
ZEL_EXPORT std::shared_ptr<task_threads_module> CreateTaskThreadsModule();

namespace {

using wrapper = mi::ModuleWrapper<tasks_core_module_impl, tasks_core_module,
                                  &GetModuleLifetimeObject, mi::exit_rank::neighbour>;
using threads_wrapper = mi::ModuleWrapper<task_threads_module_impl, task_threads_module,
                                          &GetModuleLifetimeObject, mi::exit_rank::neighbour>;
using longevity = lifetime::const_longevity_traits<201008>;
constinit lifetime::basic_singleton<wrapper, longevity> module;
constinit lifetime::basic_singleton<threads_wrapper, longevity> threads_module;

template <class Singleton>
bool is_held(Singleton& of_one) {
    return of_one.read_if_created([](const auto& w) { return w.module().use_count() > 1; })
        .value_or(false);
}

template <class Singleton>
int count_of(Singleton& of_one) {
    return of_one.read_if_created([](const auto&) { return 1; }).value_or(0);
}

class tasks_core_lifetime final : public mi::ModuleLifetime {
public:
    bool IsModuleUsed() const override {
        // Besides what the library keeps itself, every object is somebody's: the
        // ended state of a task above all.
        const int own =
            count_of(module) + count_of(threads_module) + tasks_core_module_impl::own_objects();
        return mi::live_objects::current().objects > own ||
               tasks_core_module_impl::are_threads_used() || is_held(module) ||
               is_held(threads_module);
    }
};

} // namespace

std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<tasks_core_lifetime>();
}

std::shared_ptr<tasks_core_module> CreateTasksCoreModule() {
    return module.read([](const wrapper& w) { return w.module(); });
}

std::shared_ptr<task_threads_module> CreateTaskThreadsModule() {
    return threads_module.read([](const threads_wrapper& w) { return w.module(); });
}

} // namespace zel::tasklib::detail
