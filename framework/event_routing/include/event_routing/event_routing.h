// Event routing: one-to-many notifications along dot-separated paths.
//
//     auto events = zel::event_routing::get_event_routing(*module);
//     auto cookie = events->RegisterEventHandler(
//         nullptr, "document.*",
//         [](const std::string& path, const auto& /*data*/, const auto& /*parameters*/) {
//             std::cout << path << '\n';
//             return true;
//         },
//         nullptr, "title bar");
//     events->BroadcastEvent("document.saved", payload, {}, nullptr);
//
// A handler registered for `a.b` is reached by the path `a.b` alone, one for
// `a.b.*` by every path below `a.b`, one for `*` by every path. Handlers run from
// the most specific registration to the least, in registration order within a
// level, each at most once per broadcast.
//
// Dropping the cookie is the only way to unregister. It waits for running
// asynchronous parts of the handler, except from inside the handler itself.
//
// From inside a synchronous part a handler may broadcast, register and drop
// cookies, its own too: no lock of the service is held. A handler registered
// meanwhile is not part of the running broadcast; one dropped meanwhile is
// skipped if its turn has not come.
#pragma once

#include <event_routing/fwd.h>
#include <event_routing/routing_parameters.h>

#include <framework/module_interface/interface.h>
#include <framework/serialization/data_holder.h>
#include <framework/threading/universal_timeout.h>
#include <tasklib/fwd.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zel::event_routing {

using event_data = std::shared_ptr<const serialization::IDataHolder>;

/// Runs on the broadcasting thread. Its result decides whether the asynchronous
/// part runs. What it throws is logged and counts as false.
using synchronous_event_part = std::function<bool(const std::string& path, const event_data& data,
                                                  const routing_parameters& parameters)>;

/// Runs later, as a task. To come: registering one throws exceptions::fatal today,
/// as do the other operations below that need tasks or monitors.
using asynchronous_event_part = std::function<void(const std::string& path, const event_data& data,
                                                   const routing_parameters& parameters)>;

using event_monitor = std::function<void(const std::string& path, const event_data& data,
                                         const routing_parameters& parameters,
                                         const monitor::event_handling_info_2& info)>;

class ZEL_EXPORT IEventRouting : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 15;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    virtual std::shared_ptr<tasklib::task_queue_ifc> CreateTaskQueue() = 0;

    /// Runs the handlers of one path, or of several separated by ";". A handler
    /// found through several paths runs once and is given those paths joined by
    /// ";". Failures of handlers are logged; `keep` has no effect.
    virtual void BroadcastEvent(const std::string& paths, const event_data& data,
                                const routing_parameters& parameters,
                                const std::shared_ptr<tasklib::keep_registered>& keep) = 0;

    virtual void
    BroadcastCumulativeEvent(threading::universal_timeout delay, const std::string& path,
                             const event_data& data, const routing_parameters& parameters,
                             const std::shared_ptr<tasklib::keep_registered>& keep) = 0;

    /// Registers a handler; either part may be empty. The handler stays
    /// registered as long as somebody holds the result. Throws exceptions::error
    /// for a path with a misplaced "*".
    virtual std::shared_ptr<tasklib::keep_registered>
    RegisterEventHandler(const std::shared_ptr<tasklib::task_queue_ifc>& queue,
                         const std::string& path, const synchronous_event_part& synchronous_part,
                         const asynchronous_event_part& asynchronous_part,
                         const std::string& description) = 0;

    /// Path and description of every handler.
    virtual std::vector<std::pair<std::string, std::string>> GetEventHandlers() = 0;

    virtual std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(event_monitor monitor) = 0;

    virtual bool EndAndWaitForHandlers() = 0;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::IEventRouting> {
    static std::string text() { return "class zel::event_routing::IEventRouting"; }
};
