#include "examples/directory_index/folder_follower.h"

#include "examples/directory_index/paths.h"

#include <platform/diagnostics.h>

#include <utility>

namespace directory_index {

namespace {

// Long enough for most bursts, short enough for somebody who looks at the screen.
constexpr zel::threading::universal_timeout moment{false, 200'000};

} // namespace

folder_follower::folder_follower(IEventRouting& events, zel::platform::folder_watch& watch)
    : events_(events), watch_(watch), when_due_(events.RegisterEventHandler(
                                          nullptr, paths::watch_changed,
                                          [due = due_](auto&&...) {
                                              due->set();
                                              return true;
                                          },
                                          nullptr, "changes are due")),
      thread_([this] { follow(); }) {}

folder_follower::~folder_follower() {
    watch_.stop();
    thread_.join();
}

changes folder_follower::take() {
    zel::platform::scoped_lock inside(guard_);
    if (failure_)
        std::rethrow_exception(failure_);
    return std::exchange(gathered_, {});
}

void folder_follower::follow() {
    auto failure = zel::platform::guarded([&] {
        while (const auto seen = watch_.wait()) {
            gather(*seen);
            events_.BroadcastCumulativeEvent(moment, paths::watch_changed, nullptr, {}, nullptr);
        }
    });
    if (!failure)
        return;
    {
        zel::platform::scoped_lock inside(guard_);
        failure_ = std::move(failure);
    }
    due_->set();
}

void folder_follower::gather(const std::vector<zel::platform::folder_change>& seen) {
    using where = zel::platform::folder_change::where;
    zel::platform::scoped_lock inside(guard_);
    for (const auto& change : seen) {
        if (change.at == where::everywhere)
            gathered_.everywhere = true;
        else if (change.at == where::folder)
            gathered_.folders.insert(change.path);
        else
            gathered_.files.insert(change.path);
    }
}

} // namespace directory_index
