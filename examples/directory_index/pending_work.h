// Waiting for what components do on threads of the task library.
//
// The host does not know who works asynchronously, nor through which queue. It asks all at
// once; whoever does answers "pending" at once and "flushed" from behind all the work that
// was in its queue before (paths.h).
#pragma once

#include "examples/directory_index/component.h"

#include <platform/critical_section.h>
#include <platform/event.h>

namespace directory_index {

class pending_work {
public:
    /// Must outlive the components: their answers may still be in it when `wait` returns.
    explicit pending_work(IEventRouting& events);

    /// Returns when all is done that was begun before. One thread at a time.
    void wait();

private:
    void begin();
    void end();

    IEventRouting& events_;
    zel::platform::critical_section guard_; // components answer on threads of their own
    int pending_ ZEL_GUARDED_BY(guard_) = 0;
    zel::platform::event done_{zel::platform::reset_mode::automatic, false};
    cookies cookies_;
};

} // namespace directory_index
