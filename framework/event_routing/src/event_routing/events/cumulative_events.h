// Events that are merged and delivered later.
//
// Broadcasts for one path that come while its delivery is pending make one batch,
// which remembers the latest of them and their number.
#pragma once

#include <event_routing/event_routing.h>

#include <platform/critical_section.h>

#include <memory>
#include <string>
#include <unordered_map>

namespace zel::event_routing::impl {

struct cumulative_event_data {
    event_data data;
    routing_parameters parameters;
    std::uint32_t count = 0;
};

/// The pending batches of one service. Any thread may call any operation.
class cumulative_events {
public:
    /// True for the first broadcast of a batch: its delivery has to be arranged.
    bool add(const std::string& path, event_data data, routing_parameters parameters);

    /// The batch of the path, or null; from now on another one begins.
    std::shared_ptr<cumulative_event_data> TakeCumulativeEvent(const std::string& path);

    void drop_all();

private:
    // Guards what follows. Never held while a task is made, an event is broadcast or
    // a payload destroyed.
    platform::plain_lock guard_;
    // Null while nothing is pending. Paths stay, because they come again.
    std::unordered_map<std::string, std::shared_ptr<cumulative_event_data>>
        pending_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
