// Gathers what changes in watched folders until it is time to look at it.
//
// Files are rarely changed once: they are written piece by piece, copied by the hundred,
// saved under another name and moved. Each change asks for a cumulative event, so that a
// burst of them is looked at together, a moment after it began.
#pragma once

#include "examples/directory_index/component.h"

#include <platform/critical_section.h>
#include <platform/event.h>
#include <platform/folder_watch.h>

#include <exception>
#include <set>
#include <string>
#include <thread>

namespace directory_index {

struct changes {
    bool everywhere = false; ///< some were lost: all has to be looked at
    std::set<std::string> files;
    std::set<std::string> folders;

    bool empty() const noexcept { return !everywhere && files.empty() && folders.empty(); }
};

class folder_follower {
public:
    /// Follows what is added to the watch from now on. Both must outlive the follower, which
    /// stops the watch at its end.
    folder_follower(IEventRouting& events, zel::platform::folder_watch& watch);
    ~folder_follower();
    folder_follower(const folder_follower&) = delete;
    folder_follower& operator=(const folder_follower&) = delete;

    /// Is signalled when changes should be taken.
    zel::platform::event& due() noexcept { return *due_; }
    /// What has come together. Throws what ended the following.
    changes take();

private:
    void follow();
    void gather(const std::vector<zel::platform::folder_change>& seen);

    IEventRouting& events_;
    zel::platform::folder_watch& watch_;
    // Shared with the handler, which may run once more when the follower has ended.
    const std::shared_ptr<zel::platform::event> due_ =
        std::make_shared<zel::platform::event>(zel::platform::reset_mode::automatic, false);
    zel::platform::critical_section guard_; // between the thread that follows and who takes
    changes gathered_ ZEL_GUARDED_BY(guard_);
    std::exception_ptr failure_ ZEL_GUARDED_BY(guard_);
    cookie when_due_;
    std::thread thread_;
};

} // namespace directory_index
