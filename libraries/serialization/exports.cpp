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

template <class Singleton>
bool is_held(Singleton& module) {
    return module.read_if_created([](const auto& w) { return w.module().use_count() > 1; })
        .value_or(false);
}

template <class Singleton>
int count_of(Singleton& module) {
    return module.read_if_created([](const auto&) { return 1; }).value_or(0);
}

class bin_lifetime final : public mi::ModuleLifetime {
public:
    // The modules and the cookies do not count: whoever holds a cookie has a reference to
    // this library of its own. Every other object is a payload.
    bool IsModuleUsed() const override {
        const int own = live_cookies.load(std::memory_order_relaxed) + count_of(bin_module) +
                        count_of(json_module);
        return is_held(bin_module) || mi::live_objects::current().objects > own;
    }
};

class json_lifetime final : public mi::ModuleLifetime {
public:
    bool IsModuleUsed() const override { return is_held(json_module); }
};

} // namespace

std::shared_ptr<mi::IModuleLifetime> bin_ser::GetModuleLifetimeObject() {
    return mi::shared_lifetime<bin_lifetime>();
}

std::shared_ptr<mi::IModuleLifetime> json_conv::GetModuleLifetimeObject() {
    return mi::shared_lifetime<json_lifetime>();
}

std::shared_ptr<IBinSerializationModule> bin_ser::CreateBinSerializationModule() {
    return bin_module.read([](const bin_wrapper& w) { return w.module(); });
}

std::shared_ptr<IJsonConversionModule> json_conv::CreateJsonConversionModule() {
    return json_module.read([](const json_wrapper& w) { return w.module(); });
}

} // namespace zel::serialization::detail
