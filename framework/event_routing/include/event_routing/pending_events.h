// What can be done with a cumulative event before it is due.
//
//     events->BroadcastCumulativeEvent({false, 500'000}, "settings.changed", data, {}, nullptr);
//     ...
//     flush_cumulative_event(*events, "settings.changed"); // deliver it now, before we go on
//
// Both functions take what was merged for exactly this text of paths. Whatever is broadcast
// for it afterwards begins anew, with a delay of its own.
#pragma once

#include <event_routing/event_routing.h>

#include <framework/module_interface/version_check.h>

#include <string>

namespace zel::event_routing {

/// Stands beside IEventRouting in the service's object; the functions below find it there.
class ZEL_EXPORT IPendingEvents {
public:
    static constexpr std::int32_t interface_version = 1;
    /// Of the object; the functions below refuse another than theirs.
    virtual std::int32_t GetPendingEventsVersion() const { return interface_version; }

    /// See flush_cumulative_event.
    virtual bool FlushCumulativeEvent(const std::string& path) = 0;
    /// See cancel_cumulative_event.
    virtual bool CancelCumulativeEvent(const std::string& path) = 0;

protected:
    ~IPendingEvents() = default;
};

} // namespace zel::event_routing

template <>
struct zel::declared_type_name<zel::event_routing::IPendingEvents> {
    static std::string text() { return "class zel::event_routing::IPendingEvents"; }
};

namespace zel::event_routing {

namespace detail {

/// Throws exceptions::error for a service without the interface, WrongIfcVersion for one
/// that has another version of it.
inline IPendingEvents& pending_events_of(IEventRouting& events) {
    auto* const found = dynamic_cast<IPendingEvents*>(&events);
    if (!found)
        throw exceptions::error("The event service cannot flush or cancel cumulative events.");
    zel::detail::require_version(type_name<IPendingEvents>(), IPendingEvents::interface_version,
                                 found->GetPendingEventsVersion(), events);
    return *found;
}

} // namespace detail

/// Broadcasts at once, on the calling thread, what is pending for the path. False when
/// nothing is, also while its delivery runs already; that is not waited for.
inline bool flush_cumulative_event(IEventRouting& events, const std::string& path) {
    return detail::pending_events_of(events).FlushCumulativeEvent(path);
}

/// Drops what is pending for the path, undelivered. False when nothing is, also while its
/// delivery runs already; that goes on.
inline bool cancel_cumulative_event(IEventRouting& events, const std::string& path) {
    return detail::pending_events_of(events).CancelCumulativeEvent(path);
}

} // namespace zel::event_routing
