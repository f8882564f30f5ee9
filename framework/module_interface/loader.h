// The loader of shared libraries, implemented by the library `dll_loader`.
#pragma once

#include "framework/module_interface/interface.h"

#include <platform/library_image.h>

#include <string>

namespace zel::mi {

class ZEL_EXPORT IDllLoader : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 1;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Loads a library by its name ("zel_log") or, with a folder in it, by its
    /// path, and takes one reference. A name is looked for beside the image that
    /// contains `caller`, then where the system looks. Throws exceptions::error
    /// naming the library and the system's reason.
    virtual platform::image_handle load_dll(const std::string& library, const void* caller) = 0;

    /// Gives a reference back. The last one ends a library that load_dll had
    /// mapped: its unload callbacks and remaining end-of-life actions run, and it
    /// is unmapped unless one of its objects is alive. True when it was unmapped.
    /// Objects of a library count from its first use of the module or the log on.
    /// A library that was there before, linked for instance, is left alone. While
    /// a library ends, loading it waits on other threads. Throws
    /// exceptions::error for an image that load_dll did not return.
    virtual bool free_dll(platform::image_handle image) = 0;
};

/// Loads `dll_loader` itself, on first use; it stays for the life of the process.
IDllLoader& loader();

} // namespace zel::mi

template <>
struct zel::declared_type_name<zel::mi::IDllLoader> {
    static std::string text() { return "class zel::mi::IDllLoader"; }
};
