// Tells this process which events were lost, as an event.
#pragma once

#include "libraries/nats_bridge/task_runner.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zel::event_routing::nats {

/// Messages of one path that did not come, or could not be sent.
struct lost_range {
    std::string origin;
    std::string channel;
    std::string path;
    std::uint64_t from = 0;
    std::uint64_t to = 0;
};

/// Any thread. Numbers that follow each other are told together when they come in fast.
class lost_events {
public:
    lost_events(IModule& module, task_runner& tasks);

    /// Has a task broadcast what was lost.
    void tell(lost_range lost);

private:
    void broadcast_all();

    const std::shared_ptr<IEventRouting> events_;
    task_runner& tasks_;
    platform::critical_section guard_;                      // between who tells and the task
    std::vector<lost_range> untold_ ZEL_GUARDED_BY(guard_); // a task is posted unless empty
};

} // namespace zel::event_routing::nats
