// The process-wide service that ends libraries: when one is freed, and all of
// them when the process exits. It is the only hook for either.
//
// Implemented by the library `module_lifetime`; never unloaded itself.
#pragma once

#include "framework/module_interface/interface.h"

#include <platform/library_image.h>

#include <memory>

namespace zel::mi {

/// What the service may ask of an image, for as long as the image is mapped.
struct image_hook {
    /// Runs the end-of-life actions of the image down to a threshold.
    void (*run_actions)(int threshold);
    /// How many interface objects of the image are alive.
    std::int32_t (*live_objects)();
};

/// At process exit images with a smaller rank end first: users before what they
/// use. Images that never registered a callback, programs for instance, come first.
enum class exit_rank : int { routing = 8, neighbour = 16 };

/// What became of an image whose end was asked for.
enum class image_end {
    unused, ///< forgotten, and may be unmapped
    in_use,
    process_exits, ///< nothing is unmapped any more
};

/// Keeps an unload callback registered until it is withdrawn or destroyed.
class ZEL_EXPORT unload_registration {
public:
    virtual ~unload_registration() = default;
};

class ZEL_EXPORT IModuleLifetimeService : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 3;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Makes an image known, once or again.
    virtual void AddImage(platform::image_handle image, const image_hook& hook) = 0;

    using unload_callback = void (*)();
    /// Has the callback called when the image is about to be unloaded or the
    /// process exits. Destroying the result withdraws it.
    virtual std::shared_ptr<unload_registration>
    RegisterUnloadCallback(platform::image_handle image, unload_callback callback,
                           exit_rank rank) = 0;

    /// Runs the image's unload callbacks, then its remaining actions. `unused` when
    /// nothing of it is in use, neither an interface object nor what
    /// platform/image_use.h counts. Never while the process exits. May be called again
    /// for an image that was in use. The loader calls it with no lock held; whoever loads this
    /// library meanwhile waits.
    virtual image_end EndImage(platform::image_handle image) = 0;

    /// How many interface objects of the image are alive. None are known of an image
    /// that was never made known.
    virtual std::int32_t CountObjects(platform::image_handle image) = 0;
};

/// Loads `module_lifetime` on first use.
IModuleLifetimeService& lifetime_service();

/// Makes the image that this is linked into known to the service, so that its
/// end-of-life actions are run. Returns the image.
platform::image_handle announce_this_image();

} // namespace zel::mi

template <>
struct zel::declared_type_name<zel::mi::IModuleLifetimeService> {
    static std::string text() { return "class zel::mi::IModuleLifetimeService"; }
};
