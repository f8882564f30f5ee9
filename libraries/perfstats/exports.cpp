#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"
#include "libraries/perfstats/performance_logger_storage_impl.h"

namespace zel::perfstats::detail {

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();
ZEL_EXPORT std::shared_ptr<tasklib::performance_logger_storage_module>
CreatePerformanceLoggerStorageModule();

namespace {

using wrapper =
    mi::ModuleWrapper<performance_logger_storage_impl, tasklib::performance_logger_storage_module,
                      &GetModuleLifetimeObject, mi::exit_rank::neighbour>;
constinit lifetime::basic_singleton<wrapper, lifetime::const_longevity_traits<201008>> module;

class perfstats_lifetime final : public mi::ModuleLifetime {
public:
    bool IsModuleUsed() const override {
        return module.read_if_created([](const wrapper& w) { return w.module().use_count() > 1; })
            .value_or(mi::live_objects::current().objects > 0);
    }
};

} // namespace

std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<perfstats_lifetime>();
}

std::shared_ptr<tasklib::performance_logger_storage_module> CreatePerformanceLoggerStorageModule() {
    return module.read([](const wrapper& w) { return w.module(); });
}

} // namespace zel::perfstats::detail
