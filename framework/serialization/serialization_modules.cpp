#include "framework/serialization/serialization_modules.h"

#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/neighbour_module.h"

namespace zel::serialization {

namespace {

template <class Interface>
class serialization_library : public mi::neighbour_module<Interface> {
public:
    using mi::neighbour_module<Interface>::neighbour_module;

    /// Refuses, and leaves the library loaded, while its objects are in use.
    void end() { this->refuse_while_used(); }
};

class bin_serialization_library : public serialization_library<IBinSerializationModule> {
public:
    bin_serialization_library()
        : serialization_library(
              {"zel_serialization",
               "_ZN3zel13serialization6detail7bin_ser28CreateBinSerializationModuleEv",
               "_ZN3zel13serialization6detail7bin_ser23GetModuleLifetimeObjectEv"}) {}
};

class json_conversion_library : public serialization_library<IJsonConversionModule> {
public:
    json_conversion_library()
        : serialization_library(
              {"zel_serialization",
               "_ZN3zel13serialization6detail9json_conv26CreateJsonConversionModuleEv",
               "_ZN3zel13serialization6detail9json_conv23GetModuleLifetimeObjectEv"}) {}
};

using library_longevity = lifetime::const_longevity_traits<200999>;
constinit lifetime::basic_singleton<bin_serialization_library, library_longevity> bin_serialization;
constinit lifetime::basic_singleton<json_conversion_library, library_longevity> json_conversion;

// Registrations end right before what they were made through.
struct registrations_longevity {
    struct from_module {
        operator int() const { return get_bin_serialization_module()->GetLongevity() + 1; }
    };
    static constexpr from_module longevity{};
};

class ModuleTypeRegistrations : public tasklib::registrations {};

constinit lifetime::basic_singleton<ModuleTypeRegistrations, registrations_longevity>
    type_registrations;

} // namespace

std::shared_ptr<IBinSerializationModule> get_bin_serialization_module() {
    return mi::require_module<exceptions::error>(bin_serialization,
                                                 "Binary Serialization Module already unloaded.");
}

std::shared_ptr<IJsonConversionModule> get_json_conversion_module() {
    return mi::require_module<exceptions::error>(json_conversion,
                                                 "JSON Conversion Module already unloaded.");
}

void use_type_registrations(const std::function<void(tasklib::registrations&)>& use) {
    type_registrations.read([&](auto& registrations) { use(registrations); });
}

} // namespace zel::serialization
