// The monitors that count traffic, one at every service of the module.
#pragma once

#include "tools/inspect/host.h"
#include "tools/inspect/traffic.h"

#include <tasklib/keep_registered.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace inspect {

/// Counts as long as it lives; what is sent meanwhile by this program itself to look
/// around is not counted. The traffic must outlive it.
class monitors {
public:
    monitors(const host& components, traffic& counts);

    /// Also watches the channels that have been made meanwhile.
    void follow_channels();

private:
    void watch_events(zel::event_routing::IEventRouting& events, const std::string& service);
    void watch_requests();
    void watch_snowballs();

    const host& components_;
    traffic& counts_;
    std::set<std::string> channels_; // that are watched
    std::vector<std::shared_ptr<zel::tasklib::keep_registered>> cookies_;
};

} // namespace inspect
