// The base of every interface that crosses a library boundary.
//
// Interface objects are shared objects. Every level of an interface has a version
// getter; who obtains an object from another library checks it level by level
// before use (version_check.h). The order of the virtual operations is part of
// the contract.
#pragma once

#include "framework/module_interface/live_objects.h"
#include "framework/module_interface/type_name.h"

#include <platform/export.h>

#include <cstdint>

namespace zel::mi {

/// Counts the object in when it is made. Not an interface of its own.
class ZEL_EXPORT InterfaceObjectReference {
public:
    InterfaceObjectReference(const InterfaceObjectReference&) = delete;
    InterfaceObjectReference& operator=(const InterfaceObjectReference&) = delete;

protected:
    InterfaceObjectReference() noexcept { live_objects::add_object(); }
    ~InterfaceObjectReference() = default;
};

class ZEL_EXPORT IExportable : public virtual InterfaceObjectReference {
public:
    virtual ~IExportable() { live_objects::remove_object(); }
    virtual std::int32_t GetExportableVersion() const { return 1; }
};

/// Describes a library; reserved.
struct LibraryDescriptor {
    std::uintptr_t reserved = 0;
};

/// The one of the library that this is linked into.
const LibraryDescriptor& own_library_descriptor() noexcept;

class ZEL_EXPORT IModule : public virtual IExportable {
public:
    IModule() noexcept { live_objects::add_module(); }
    /// Gives the other objects of the library a moment to go, see live_objects.
    ~IModule() override { live_objects::remove_module(); }
    virtual const LibraryDescriptor& GetLibraryDescriptor() const {
        return own_library_descriptor();
    }
};

} // namespace zel::mi

namespace zel {

template <class Base>
class ZEL_EXPORT IVersionCheck : public Base {
public:
    static constexpr std::int32_t check_version = 1;

    virtual std::int32_t GetCheckVersion() const { return check_version; }
    /// An address inside the library that implements the object.
    virtual const void* GetImplementationAddress() const { return mi::implementation_address(); }
};

class ZEL_EXPORT InterfaceBase : public IVersionCheck<mi::IExportable> {
public:
    static constexpr std::int32_t base_version = 2;

    virtual std::int32_t GetBaseVersion() const { return base_version; }
};

class ZEL_EXPORT ModuleInterfaceBase : public IVersionCheck<mi::IModule> {
public:
    static constexpr std::int32_t base_version = 3;

    virtual std::int32_t GetBaseVersion() const { return base_version; }
};

template <>
struct declared_type_name<mi::IExportable> {
    static std::string text() { return "class zel::mi::IExportable"; }
};

template <>
struct declared_type_name<mi::IModule> {
    static std::string text() { return "class zel::mi::IModule"; }
};

template <class Base>
struct declared_type_name<IVersionCheck<Base>> {
    static std::string text() {
        return template_type_name("class zel::IVersionCheck", {type_name<Base>()});
    }
};

template <>
struct declared_type_name<InterfaceBase> {
    static std::string text() { return "class zel::InterfaceBase"; }
};

template <>
struct declared_type_name<ModuleInterfaceBase> {
    static std::string text() { return "class zel::ModuleInterfaceBase"; }
};

} // namespace zel
