// Checks an interface object of another library before its first use.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/interface.h"

#include <string>
#include <typeinfo>

namespace zel {

/// An interface level has another version than this code was built for. The text
/// names both libraries, the interface and both versions.
class ZEL_EXPORT WrongIfcVersion : public exceptions::error {
public:
    [[gnu::noinline]] WrongIfcVersion(const std::string& interface_name, std::int32_t expected,
                                      std::int32_t found, const std::type_info& implementation,
                                      const void* implementation_address);
};

namespace detail {

template <class Object>
void require_version(const std::string& interface_name, std::int32_t expected, std::int32_t found,
                     const Object& object) {
    if (found != expected)
        throw WrongIfcVersion(interface_name, expected, found, typeid(object),
                              object.GetImplementationAddress());
}

template <class Base, class Object>
void check_base_versions(const Object& object) {
    require_version(type_name<IVersionCheck<Base>>(), IVersionCheck<Base>::check_version,
                    object.GetCheckVersion(), object);
}

} // namespace detail

/// Checks the levels below a module's own interface.
inline void CheckModuleInterfaceVersion(const ModuleInterfaceBase& module) {
    detail::check_base_versions<mi::IModule>(module);
    detail::require_version(type_name<ModuleInterfaceBase>(), ModuleInterfaceBase::base_version,
                            module.GetBaseVersion(), module);
}

/// Checks the levels below an object's own interface.
inline void CheckInterfaceVersion(const InterfaceBase& object) {
    detail::check_base_versions<mi::IExportable>(object);
    detail::require_version(type_name<InterfaceBase>(), InterfaceBase::base_version,
                            object.GetBaseVersion(), object);
}

/// Checks all levels of an object, from the base upwards to `Interface` itself,
/// which states its version as `interface_version`.
template <class Interface>
void RequireInterface(const Interface& object) {
    if constexpr (std::is_base_of_v<ModuleInterfaceBase, Interface>)
        CheckModuleInterfaceVersion(object);
    else
        CheckInterfaceVersion(object);
    detail::require_version(type_name<Interface>(), Interface::interface_version,
                            object.GetInterfaceVersion(), object);
}

} // namespace zel
