#include "libraries/nats_bridge/lost_events.h"

#include "framework/log/log_area.h"
#include "libraries/nats_bridge/origin.h"

#include <event_routing/nats_bridge.h>

#include <platform/diagnostics.h>

#include <algorithm>
#include <utility>

namespace zel::event_routing::nats {

namespace {

// A burst alternates between few paths; to look further back would take longer than to tell of
// each by itself.
constexpr std::ptrdiff_t looked_at = 16;
// While no task finds the time to tell of them; beyond that they are only counted.
constexpr std::size_t most_untold = 65'536;

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position not_told("event_routing/libraries/nats_bridge/lost_events.cpp", 1);

bool continues(const lost_range& told, const lost_range& next) {
    return told.to + 1 == next.from && told.origin == next.origin && told.path == next.path &&
           told.channel == next.channel;
}

} // namespace

lost_events::lost_events(IModule& module, task_runner& tasks)
    : events_(get_event_routing(module)), tasks_(tasks) {}

bool lost_events::note(lost_range lost) {
    platform::scoped_lock inside(guard_);
    const auto end =
        untold_.rbegin() + std::min(static_cast<std::ptrdiff_t>(untold_.size()), looked_at);
    const auto before = std::find_if(untold_.rbegin(), end,
                                     [&](const auto& told) { return continues(told, lost); });
    if (before != end) {
        before->to = lost.to;
        return false;
    }
    if (untold_.size() < most_untold)
        untold_.push_back(std::move(lost));
    return untold_.size() == 1;
}

void lost_events::tell() {
    {
        platform::scoped_lock inside(guard_);
        if (untold_.empty() || is_posted_)
            return;
        is_posted_ = true;
    }
    tasks_.post([this] { broadcast_all(); });
}

void lost_events::broadcast_all() {
    std::vector<lost_range> told;
    {
        platform::scoped_lock inside(guard_);
        told.swap(untold_);
        is_posted_ = false;
    }
    for (const auto& lost : told) {
        routing_parameters about;
        about[parameter::origin] = lost.origin; // keeps it in this process, too
        about[parameter::host] = host_of(lost.origin);
        about[parameter::lost_channel] = lost.channel;
        about[parameter::lost_path] = lost.path;
        about[parameter::lost_from] = lost.from;
        about[parameter::lost_to] = lost.to;
        const auto failure = platform::guarded(
            [&] { events_->BroadcastEvent(lost_event, nullptr, about, nullptr); });
        if (failure)
            bridge_log.report(log::severity::failed_operation, not_told, failure,
                              [] { return "What was lost was not told to all."; });
    }
}

} // namespace zel::event_routing::nats
