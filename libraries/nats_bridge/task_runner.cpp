#include "libraries/nats_bridge/task_runner.h"

#include <platform/diagnostics.h>

#include <exception>
#include <utility>

namespace zel::event_routing::nats {

task_runner::task_runner(IModule& module)
    : service_(get_named_event_routing(module, task_service)),
      path_(module.CreateUniqueName("task")),
      handler_(service_->RegisterEventHandler(
          nullptr, path_, nullptr, [this](auto&&...) { run_next(); }, "work of a bridge")) {}

void task_runner::post(std::function<void()> work) {
    {
        platform::scoped_lock inside(guard_);
        waiting_.push_back(std::move(work));
        if (unfinished_++ == 0)
            idle_.reset();
    }
    service_->BroadcastEvent(path_, nullptr, {}, nullptr);
}

bool task_runner::wait_until_idle(platform::milliseconds limit) {
    return idle_.wait(limit);
}

void task_runner::run_next() {
    std::function<void()> work;
    {
        platform::scoped_lock inside(guard_);
        if (waiting_.empty())
            return; // somebody else has broadcast on this service
        work = std::move(waiting_.front());
        waiting_.pop_front();
    }
    const auto failure = platform::guarded(work);
    work = nullptr; // what it holds goes before anybody hears that it has ended
    {
        platform::scoped_lock inside(guard_);
        if (--unfinished_ == 0)
            idle_.set();
    }
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace zel::event_routing::nats
