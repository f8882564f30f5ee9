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
// A handler has up to two parts. The synchronous one runs on the broadcasting
// thread; when it answers true, or when there is none, the asynchronous one is
// started as a task. Parts of handlers that share a queue run one after another, in
// the order of the broadcasts:
//
//     const auto queue = events->CreateTaskQueue();
//     auto cookie = events->RegisterEventHandler(
//         queue, "document.saved", nullptr,
//         [](const std::string& path, const auto& data, const auto&) { index(path, data); },
//         "indexer");
//
// Dropping the cookie is the only way to unregister. It waits for running
// asynchronous parts of the handler, except from inside one of them, and once it has
// returned none starts any more. The functions of event_routing/drop.h wait for synchronous
// parts, too, or for so long only.
//
// From inside a part a handler may broadcast, register and drop cookies, its own too:
// no lock of the service is held. A handler registered meanwhile is not part of the
// running broadcast; one dropped meanwhile is skipped if its turn has not come. The
// same holds for monitors.
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

/// The payload of an event, shared by all its handlers; may be null.
using event_data = std::shared_ptr<const serialization::IDataHolder>;

/// Runs on the broadcasting thread. Its result decides whether the asynchronous
/// part runs. What it throws is logged and counts as false.
using synchronous_event_part = std::function<bool(const std::string& path, const event_data& data,
                                                  const routing_parameters& parameters)>;

/// Runs as a task on a thread of the task library, after the handler's synchronous
/// part; it may overlap with later handlers of the broadcast. What it throws is logged
/// when it fails, and again when the task goes without anybody having asked.
using asynchronous_event_part = std::function<void(const std::string& path, const event_data& data,
                                                   const routing_parameters& parameters)>;

/// Is told of every part that ran, but of no asynchronous one that threw, and of every
/// broadcast, after the fact, on the thread that did the work; several threads may call it
/// at once. What it throws keeps the monitors behind it from that record. Told of a
/// synchronous part, it ends the routing of the broadcast; of an asynchronous one, the task
/// of the part; of a whole broadcast, nothing: that goes to the diagnostic observers.
using event_monitor = std::function<void(const std::string& path, const event_data& data,
                                         const routing_parameters& parameters,
                                         const monitor::event_handling_info_2& info)>;

/// Delivers events. Any thread may call every operation.
class ZEL_EXPORT IEventRouting : public InterfaceBase {
public:
    static constexpr std::int32_t interface_version = 15;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// A queue for handlers whose asynchronous parts are to run one at a time. How many
    /// wait in it is told by `tasklib::room_of` (tasklib/task_queue.h).
    virtual std::shared_ptr<tasklib::task_queue_ifc> CreateTaskQueue() = 0;

    /// Runs the handlers of one path, or of several separated by ";". A handler
    /// found through several paths runs once and is given those paths joined by
    /// ";". Failures of handlers are logged; those of synchronous parts are told to the
    /// diagnostic observers, too, once for each path and description. What else fails is
    /// logged and ends the routing, while started parts go on. What is no std::exception
    /// reaches the caller: from a monitor, or tasklib::canceled_exception when the task that
    /// the caller is inside of is canceled while it waits for room in a full queue. `keep`
    /// has no effect.
    ///
    /// With the parameter "synchronous" the call waits for the asynchronous parts it
    /// has started, for that many milliseconds in all (4294967295 or -1: until they
    /// have ended), and starts them past their queues. While there are monitors,
    /// "monitoring_message_id" and "monitoring_message_pid" are added for handlers and
    /// monitors unless the first of them is there.
    virtual void BroadcastEvent(const std::string& paths, const event_data& data,
                                const routing_parameters& parameters,
                                const std::shared_ptr<tasklib::keep_registered>& keep) = 0;

    /// Broadcasts later, once for all calls with this path that come meanwhile: after
    /// the delay of the first of them, with the data and parameters of the latest and
    /// the number of calls as "cumulative_event_count". Handlers run on a thread of the
    /// task library. Paths are told apart as they are written, "a;b" from "b;a", and each is
    /// remembered. An infinite delay never delivers, and after EndAndWaitForHandlers nothing
    /// is delivered. Throws what keeps the delivery from being arranged, exceptions::fatal
    /// when the task library has ended; the batch is gone then, with what other threads have
    /// added to it meanwhile. Whatever becomes of the task that the caller is inside of, the
    /// delivery comes. Dropping the last reference to the service drops what is not due, and
    /// does not wait for a delivery that runs: the service then ends with it, on its thread.
    virtual void
    BroadcastCumulativeEvent(threading::universal_timeout delay, const std::string& path,
                             const event_data& data, const routing_parameters& parameters,
                             const std::shared_ptr<tasklib::keep_registered>& keep) = 0;

    /// Registers a handler; either part may be empty, and so may the queue. The
    /// handler stays registered as long as somebody holds the result. Throws
    /// exceptions::error for a path with a misplaced "*".
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterEventHandler(const std::shared_ptr<tasklib::task_queue_ifc>& queue,
                         const std::string& path, const synchronous_event_part& synchronous_part,
                         const asynchronous_event_part& asynchronous_part,
                         const std::string& description) = 0;

    /// Path and description of every handler.
    virtual std::vector<std::pair<std::string, std::string>> GetEventHandlers() = 0;

    /// The monitor (event_handling_info.h) is told of broadcasts that begin from now on,
    /// as long as somebody holds the result. Dropping that waits for running calls,
    /// except from inside the monitor; afterwards it is not called any more.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(event_monitor monitor) = 0;

    /// Cancels asynchronous parts and cumulative events that have not started, also all
    /// later ones, and waits for those that run, but not for what the calling thread
    /// is inside of. Synchronous parts go on. True when all have ended.
    virtual bool EndAndWaitForHandlers() = 0;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::IEventRouting> {
    static std::string text() { return "class zel::event_routing::IEventRouting"; }
};
