// Data types by name: who makes an empty data object of a type. Implemented by the
// library `serialization`.
#pragma once

#include "framework/serialization/data.h"
#include "framework/serialization/data_holder.h"

#include <tasklib/keep_registered.h>

#include <functional>
#include <memory>
#include <string_view>

namespace zel::serialization {

/// Makes a new, empty data object. Called on any thread, on several at once.
using data_factory = std::function<std::shared_ptr<IData>()>;

class ZEL_EXPORT IBinSerializationModule : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 2;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Longevity of what a library reaches the module with. What holds registrations must
    /// live shorter, so it has at least one more.
    virtual int GetLongevity() const = 0;

    /// Until the result is dropped, CreateData uses the factory. Of several for one name
    /// the first is used. Throws exceptions::error for an empty factory.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterDataType(std::string_view type_name, data_factory factory) = 0;

    /// A holder of a new data object; null when nobody registered the name. "string" and
    /// "json" are always known. Passes on what the factory throws.
    virtual std::shared_ptr<IDataHolder> CreateData(std::string_view type_name) = 0;
};

} // namespace zel::serialization

template <>
struct zel::declared_type_name<zel::serialization::IBinSerializationModule> {
    static std::string text() { return "class zel::serialization::IBinSerializationModule"; }
};
