// Registration cookies: as long as somebody holds one, something stays registered.
#pragma once

#include <framework/module_interface/interface.h>

#include <memory>

namespace zel::tasklib {

/// A shared object whose destruction ends a registration; there is no other way
/// to end it. May be dropped on any thread.
class ZEL_EXPORT keep_registered : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }
};

} // namespace zel::tasklib

template <>
struct zel::declared_type_name<zel::tasklib::keep_registered> {
    static std::string text() { return "class zel::tasklib::keep_registered"; }
};
