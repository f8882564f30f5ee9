#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"
#include "libraries/log/log_module_impl.h"

namespace zel::log::detail {

ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();
ZEL_EXPORT std::shared_ptr<ILogModule> CreateLogModule();

namespace {

using wrapper = mi::ModuleWrapper<LogModuleImpl, ILogModule, &GetModuleLifetimeObject,
                                  mi::exit_rank::neighbour>;
constinit lifetime::basic_singleton<wrapper, lifetime::const_longevity_traits<201008>> module;

class log_lifetime final : public mi::ModuleLifetime {
public:
    bool IsModuleUsed() const override {
        // Two objects are the library's own: the module, which its singleton holds once, and
        // the sink that it brings along. Every other one is held by somebody, as the
        // subscription of a sink.
        const auto answer = module.read_if_created([](const wrapper& w) {
            return w.module().use_count() > 1 || mi::live_objects::current().objects > 2;
        });
        return answer.value_or(mi::live_objects::current().objects > 0);
    }
};

} // namespace

std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject() {
    return mi::shared_lifetime<log_lifetime>();
}

std::shared_ptr<ILogModule> CreateLogModule() {
    return module.read([](const wrapper& w) { return w.module(); });
}

} // namespace zel::log::detail
