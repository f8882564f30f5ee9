// Runs the bridge's work on threads of the task library.
//
// A client of the public interface gets a task by broadcasting an event to a handler with an
// asynchronous part. The event service for that is the bridge's own, so nobody else hears of it.
#pragma once

#include <event_routing/client.h>

#include <platform/critical_section.h>
#include <platform/event.h>
#include <platform/timeout.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace zel::event_routing::nats {

/// The name of that service.
inline constexpr const char* task_service = "event_routing.bridge";

class task_runner {
public:
    explicit task_runner(IModule& module);
    task_runner(const task_runner&) = delete;
    task_runner& operator=(const task_runner&) = delete;

    /// Any thread but one inside of a task, with whose cancellation the work would go. What it
    /// throws is logged as the failure of a task.
    void post(std::function<void()> work);

    /// Waits for the work that runs; what has not begun never will.
    void end() noexcept { handler_.reset(); }

    /// False when some is still there after that time.
    bool wait_until_idle(platform::milliseconds limit);

private:
    void run_next();

    const std::shared_ptr<IEventRouting> service_;
    const std::string path_;           // two bridges of a process share the service
    platform::critical_section guard_; // between who posts and the tasks
    std::deque<std::function<void()>> waiting_ ZEL_GUARDED_BY(guard_);
    std::size_t unfinished_ ZEL_GUARDED_BY(guard_) = 0;
    platform::event idle_{platform::reset_mode::manual, true}; // set while unfinished_ is 0
    std::shared_ptr<tasklib::keep_registered> handler_;        // the last member: it calls us
};

} // namespace zel::event_routing::nats
