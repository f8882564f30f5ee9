// What a data holder holds: a value of one data type, which others know by name
// and can carry as bytes.
#pragma once

#include "framework/module_interface/interface.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace zel::serialization {

class ZEL_EXPORT IData : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 3;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// The data type's name, the same in every library of the process.
    virtual std::string GetTypeName() const = 0;
    virtual bool IsSerializable() const = 0;

    /// The binary form, made when it is first asked for. It stays where it is until
    /// the content is replaced; `*data` is never null. Throws exceptions::error for
    /// an object without content.
    virtual void GetSerializedData(const std::uint8_t** data, std::size_t* size) const = 0;

    /// Replaces the content by a binary form, which is copied, and looked at only when the
    /// value is asked for. No other thread may use the object meanwhile.
    virtual void SetSerializedData(const std::uint8_t* data, std::size_t size) = 0;
};

} // namespace zel::serialization

template <>
struct zel::declared_type_name<zel::serialization::IData> {
    static std::string text() { return "class zel::serialization::IData"; }
};
