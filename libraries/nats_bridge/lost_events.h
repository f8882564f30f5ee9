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

/// Numbers that follow each other are told together when they come in fast.
class lost_events {
public:
    lost_events(IModule& module, task_runner& tasks);

    /// What is to be told of; true when nothing waited for that before. Any thread.
    bool note(lost_range lost);

    /// Has a task broadcast what was noted. Any thread that may post tasks.
    void tell();

    /// Broadcasts it on this thread.
    void broadcast_all();

private:
    const std::shared_ptr<IEventRouting> events_;
    task_runner& tasks_;
    platform::critical_section guard_; // between who notes and who tells
    std::vector<lost_range> untold_ ZEL_GUARDED_BY(guard_);
    bool is_posted_ ZEL_GUARDED_BY(guard_) = false; // a task is to broadcast them
};

} // namespace zel::event_routing::nats
