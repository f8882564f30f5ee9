#include "examples/directory_index/pending_work.h"

#include "examples/directory_index/paths.h"

namespace directory_index {

pending_work::pending_work(IEventRouting& events) : events_(events) {
    cookies_.push_back(events.RegisterEventHandler(
        nullptr, paths::work_pending,
        [this](auto&&...) {
            begin();
            return true;
        },
        nullptr, "pending work"));
    cookies_.push_back(events.RegisterEventHandler(
        nullptr, paths::work_flushed,
        [this](auto&&...) {
            end();
            return true;
        },
        nullptr, "flushed work"));
}

void pending_work::wait() {
    begin(); // or the first to be done would seem to be the last
    events_.BroadcastEvent(paths::work_flush, nullptr, {}, nullptr);
    end();
    done_.wait();
}

void pending_work::begin() {
    zel::platform::scoped_lock inside(guard_);
    ++pending_;
}

void pending_work::end() {
    zel::platform::scoped_lock inside(guard_);
    if (--pending_ == 0)
        done_.set();
}

} // namespace directory_index
