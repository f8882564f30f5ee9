// The loader of shared libraries, implemented by the library `dll_loader`.
#pragma once

#include "framework/module_interface/interface.h"

#include <platform/library_image.h>
#include <platform/timeout.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zel::mi {

/// What became of a library when a reference to it was given back.
enum class library_state {
    unmapped,
    loaded, ///< others have references, or had mapped it before
    kept,   ///< it has ended but stays mapped, because it is in use
};

class ZEL_EXPORT IDllLoader : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 2;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Loads a library by its name ("zel_log") or, with a folder in it, by its
    /// path, and takes one reference. A name is looked for beside the image that
    /// contains `caller`, then where the system looks. Throws exceptions::error
    /// naming the library and the system's reason. A library that has ended and is
    /// still in use is refused, and the text says what is in use: its modules would
    /// be there no more. Once nothing of it is, it is mapped afresh.
    virtual platform::image_handle load_dll(const std::string& library, const void* caller) = 0;

    /// Gives a reference back. The last one ends a library that load_dll had
    /// mapped: its unload callbacks and remaining end-of-life actions run, and it
    /// is unmapped unless something of it is in use: an interface object, or what
    /// platform/image_use.h counts. True when it was unmapped. Otherwise the next
    /// load_dll or free_dll of any library that finds it unused unmaps it. Objects
    /// of a library count from its first use of the module or the log on. A library
    /// that was there before, linked for instance, is left alone: it is not ended, and the
    /// loader keeps its reference for as long as something of it is in use. While a library
    /// ends, loading it waits on other threads. Throws exceptions::error for an
    /// image that load_dll did not return, or that was freed already.
    virtual bool free_dll(platform::image_handle image) = 0;

    /// The same, and tells why the library was not unmapped.
    virtual library_state give_back(platform::image_handle image) = 0;

    /// Unmaps a library that had to stay once nothing of it is in use, and waits for
    /// that at most for the given time. True when the library is not kept any more. False
    /// at once when nothing of it is in use and something outside of the loader keeps it
    /// mapped, and when the process exits: nothing is unmapped then.
    virtual bool unload_kept(platform::image_handle image, platform::milliseconds timeout) = 0;

    /// Unmaps all libraries that had to stay and are unused now. How many are left. What
    /// one of them throws goes to the diagnostic observers as an exception_report.
    virtual std::size_t unload_all_kept() = 0;

    /// What of a loaded or kept library is in use, a line for each use up to a number
    /// of lines, and one that counts its interface objects.
    virtual std::vector<std::string> describe_uses(platform::image_handle image,
                                                   std::size_t most) = 0;
};

/// Loads `dll_loader` itself, on first use; it stays for the life of the process.
IDllLoader& loader();

} // namespace zel::mi

template <>
struct zel::declared_type_name<zel::mi::IDllLoader> {
    static std::string text() { return "class zel::mi::IDllLoader"; }
};
