#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/module_wrapper.h"
#include "libraries/serialization/bin_serialization_module_impl.h"
#include "libraries/serialization/json_conversion_module_impl.h"

namespace zel::serialization::detail {

namespace bin_ser {
ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();
ZEL_EXPORT std::shared_ptr<IBinSerializationModule> CreateBinSerializationModule();
} // namespace bin_ser

namespace json_conv {
ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();
ZEL_EXPORT std::shared_ptr<IJsonConversionModule> CreateJsonConversionModule();
} // namespace json_conv

namespace {

using bin_wrapper = mi::ModuleWrapper<BinSerializationModuleImpl, IBinSerializationModule,
                                      &bin_ser::GetModuleLifetimeObject, mi::exit_rank::neighbour>;
using json_wrapper =
    mi::ModuleWrapper<JsonConversionModuleImpl, IJsonConversionModule,
                      &json_conv::GetModuleLifetimeObject, mi::exit_rank::neighbour>;
using longevity = lifetime::const_longevity_traits<201008>;
constinit lifetime::basic_singleton<bin_wrapper, longevity> bin_module;
constinit lifetime::basic_singleton<json_wrapper, longevity> json_module;

// Whether somebody holds the module itself; says whether there is one, too.
template <class Singleton>
bool is_held(Singleton& module, int& modules) {
    const auto uses =
        module.read_if_created([](const auto& wrapper) { return wrapper.module().use_count(); });
    modules += uses.has_value();
    return uses.value_or(1) > 1;
}

template <class Wrapper>
class serialization_lifetime final : public mi::ModuleLifetime {
public:
    // Besides the modules every object is a payload, except for cookies: who holds one
    // of those has a reference to this library of its own.
    bool IsModuleUsed() const override {
        int own = live_cookies.load(std::memory_order_relaxed);
        const bool bin_held = is_held(bin_module, own);
        const bool json_held = is_held(json_module, own);
        return bin_held || json_held || mi::live_objects::current().objects > own;
    }
};

} // namespace

std::shared_ptr<mi::IModuleLifetime> bin_ser::GetModuleLifetimeObject() {
    return mi::shared_lifetime<serialization_lifetime<bin_wrapper>>();
}

std::shared_ptr<mi::IModuleLifetime> json_conv::GetModuleLifetimeObject() {
    return mi::shared_lifetime<serialization_lifetime<json_wrapper>>();
}

std::shared_ptr<IBinSerializationModule> bin_ser::CreateBinSerializationModule() {
    return bin_module.read([](const bin_wrapper& w) { return w.module(); });
}

std::shared_ptr<IJsonConversionModule> json_conv::CreateJsonConversionModule() {
    return json_module.read([](const json_wrapper& w) { return w.module(); });
}

} // namespace zel::serialization::detail
