// The asynchronous part of a handler as a task.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_monitors.h"

namespace zel::event_routing::impl {

/// The body of the task. Holds neither the service nor the handler's callable.
class asynchronous_part {
public:
    /// The name of the task keeps the list in which the handler stands, for as long as
    /// anybody refers to the task, such as a task that was made inside of the part. The records
    /// are there when the part begins, because its service waits for it.
    asynchronous_part(thread_records& threads, const MultiPathHandlerInfo& handler, event_data data,
                      routing_parameters parameters, event_monitors::snapshot monitors)
        : threads_(threads), handler_(&handler), data_(std::move(data)),
          parameters_(std::move(parameters)), monitors_(std::move(monitors)) {}

    /// Runs the part inside a call that the removal of the handler waits for; does
    /// nothing once the handler is retired. What the part or a monitor throws ends
    /// the task.
    void operator()() const;

private:
    thread_records& threads_;
    const MultiPathHandlerInfo* handler_;
    event_data data_;
    routing_parameters parameters_;
    event_monitors::snapshot monitors_;
};

} // namespace zel::event_routing::impl
