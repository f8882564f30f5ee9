#include "libraries/nats_bridge/lost_events.h"

#include "libraries/nats_bridge/origin.h"

#include <event_routing/nats_bridge.h>

#include <algorithm>
#include <utility>

namespace zel::event_routing::nats {

namespace {

// A burst alternates between few paths; to look further back would take longer than to tell of
// each by itself.
constexpr std::ptrdiff_t looked_at = 16;

bool continues(const lost_range& told, const lost_range& next) {
    return told.to + 1 == next.from && told.origin == next.origin && told.path == next.path &&
           told.channel == next.channel;
}

} // namespace

lost_events::lost_events(IModule& module, task_runner& tasks)
    : events_(get_event_routing(module)), tasks_(tasks) {}

void lost_events::tell(lost_range lost) {
    {
        platform::scoped_lock inside(guard_);
        const auto end =
            untold_.rbegin() + std::min(static_cast<std::ptrdiff_t>(untold_.size()), looked_at);
        const auto before = std::find_if(untold_.rbegin(), end,
                                         [&](const auto& told) { return continues(told, lost); });
        if (before != end) {
            before->to = lost.to;
            return;
        }
        untold_.push_back(std::move(lost));
        if (untold_.size() > 1)
            return;
    }
    tasks_.post([this] { broadcast_all(); });
}

void lost_events::broadcast_all() {
    std::vector<lost_range> told;
    {
        platform::scoped_lock inside(guard_);
        told.swap(untold_);
    }
    for (const auto& lost : told) {
        routing_parameters about;
        about[parameter::origin] = lost.origin; // keeps it in this process, too
        about[parameter::host] = host_of(lost.origin);
        about[parameter::lost_channel] = lost.channel;
        about[parameter::lost_path] = lost.path;
        about[parameter::lost_from] = lost.from;
        about[parameter::lost_to] = lost.to;
        events_->BroadcastEvent(lost_event, nullptr, about, nullptr);
    }
}

} // namespace zel::event_routing::nats
