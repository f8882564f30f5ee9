// Events that are merged and delivered later.
//
// Broadcasts for one path that come while its delivery is pending make one batch,
// which remembers the latest of them and their number.
#pragma once

#include <event_routing/event_routing.h>

#include <platform/critical_section.h>
#include <tasklib/task_ifc.h>

#include <memory>
#include <string>
#include <unordered_map>

namespace zel::event_routing::impl {

/// One batch.
struct cumulative_event_data {
    event_data data;
    routing_parameters parameters;
    std::uint32_t count = 0;
    std::weak_ptr<tasklib::task_ifc> delivery; ///< once it is arranged
};

/// The pending batches of one service. Any thread may call any operation.
class cumulative_events {
public:
    using batch = std::shared_ptr<cumulative_event_data>;

    /// The batch if this is the first broadcast of it: its delivery has to be arranged. Else
    /// null.
    batch add(const std::string& path, event_data data, routing_parameters parameters);

    /// Notes the task that is going to deliver a batch. False when that is not pending any
    /// more.
    bool arrange(const std::string& path, const batch& pending,
                 const std::shared_ptr<tasklib::task_ifc>& delivery);

    /// The batch of the path, or null; from now on another one begins.
    batch TakeCumulativeEvent(const std::string& path);

    /// False when it is not pending any more; from now on another one begins.
    bool take(const std::string& path, const batch& pending);

    void drop_all();

private:
    // Guards what follows. Never held while a task is made, an event is broadcast or
    // a payload destroyed.
    platform::plain_lock guard_;
    // Null while nothing is pending. Paths stay, because they come again.
    std::unordered_map<std::string, batch> pending_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
