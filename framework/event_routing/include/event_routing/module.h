// The module: the one object through which everything else is reached.
//
// Most clients use event_routing/client.h, which obtains it with all versions
// checked. All operations may be called on any thread.
#pragma once

#include <event_routing/fwd.h>
#include <event_routing/routing_parameters.h>

#include <framework/module_interface/interface.h>
#include <platform/window_handle.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zel::mi {
class IModuleLifetime;
}

namespace zel::event_routing {

/// The library's one object in a process, which gives out the services. Any thread.
class ZEL_EXPORT IModule : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 16;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Does nothing: it keeps the place of a later operation.
    virtual void ReservedHook1() = 0;
    /// The same.
    virtual void ReservedHook2() = 0;

    /// The default event routing service.
    virtual std::shared_ptr<IEventRouting> GetEventRouting() = 0;
    /// The event routing instance of that name, made on first request; names are told
    /// apart byte for byte, and the empty one is as good as any. It lives as long as the
    /// module, its handlers and its users, and the module's end does not wait for it.
    virtual std::shared_ptr<IEventRouting> GetNamedEventRouting(const std::string& name) = 0;
    /// The request routing service.
    virtual std::shared_ptr<IRequestRouting> GetRequestRouting() = 0;
    /// The snowball routing service.
    virtual std::shared_ptr<ISnowballRouting> GetSnowballRouting() = 0;

    /// What runs work on the thread of a window, the same object for each call. Throws
    /// exceptions::error for a window that does not exist, or that is being destroyed and
    /// had none before.
    virtual std::shared_ptr<IInWndProcHandling>
    GetInWndProcHandling(platform::window_handle window) = 0;

    /// The byte form of a parameter map. Throws std::length_error beyond
    /// 2147483647 bytes.
    virtual std::vector<std::uint8_t>
    SerializeRoutingParameters(const routing_parameters& parameters) = 0;
    /// The map of a byte form; throws exceptions::error for malformed bytes, and
    /// for none at all where there should be some.
    virtual routing_parameters DeserializeRoutingParameters(const std::uint8_t* data,
                                                            std::size_t size) = 0;

    /// The base text with an ending that no other call in this process gives.
    /// Throws std::length_error for a base that leaves no room for it.
    virtual std::string CreateUniqueName(const std::string& base) = 0;

    /// The number of the next event, from 1; it wraps after 4294967295.
    virtual std::uint32_t NextEventMessageId() = 0;
    /// The same for requests.
    virtual std::uint32_t NextRequestMessageId() = 0;
    /// The same for snowballs.
    virtual std::uint32_t NextSnowballMessageId() = 0;
};

namespace detail {

/// The module of this process, made by the first caller. Throws what making it
/// threw, to every caller, and lifetime::object_already_destroyed after its end.
ZEL_EXPORT std::shared_ptr<IModule> CreateModule();

/// The module if it has been made and has not ended, else null. Makes none.
ZEL_EXPORT std::shared_ptr<IModule> FindModule();

/// The library's own lifetime object.
ZEL_EXPORT std::shared_ptr<mi::IModuleLifetime> GetModuleLifetimeObject();

} // namespace detail

} // namespace zel::event_routing

/// The module without a reference; the library keeps it alive until its end.
extern "C" ZEL_EXPORT zel::event_routing::IModule* CreateModuleRaw();

/// Ends the library: runs its end-of-life actions of longevity 100000 and more.
extern "C" ZEL_EXPORT void on_morna_dll_unload();

template <>
struct zel::declared_type_name<zel::event_routing::IModule> {
    static std::string text() { return "class zel::event_routing::IModule"; }
};
