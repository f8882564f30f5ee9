// The type-erased payload of everything that is routed.
#pragma once

#include "framework/module_interface/interface.h"

#include <memory>

namespace zel::serialization {

class IData;

/// Payloads travel as shared holders; a null pointer is a valid, empty payload.
class ZEL_EXPORT IDataHolder : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// The data object, possibly null.
    virtual std::shared_ptr<IData> GetData() const = 0;
};

} // namespace zel::serialization

template <>
struct zel::declared_type_name<zel::serialization::IDataHolder> {
    static std::string text() { return "class zel::serialization::IDataHolder"; }
};
