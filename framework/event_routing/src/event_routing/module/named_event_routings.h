// The event routing instances that clients asked for by name.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"

#include <platform/diagnostics.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zel::event_routing::impl {

/// Any thread may call any operation. Instances stay as long as this object.
class named_event_routings {
public:
    using list = std::vector<std::pair<std::string, std::shared_ptr<EventRouting>>>;

    /// The instance of that name, byte for byte; made when it is first asked for.
    std::shared_ptr<EventRouting> get(const std::string& name) {
        platform::scoped_lock inside(guard_);
        const auto known = std::find_if(instances_.begin(), instances_.end(),
                                        [&](const auto& entry) { return entry.first == name; });
        if (known != instances_.end())
            return known->second;
        auto& made = instances_.emplace_back(name, nullptr).second;
        if (const auto failure =
                platform::guarded([&] { made = std::make_shared<EventRoutingImpl>(); })) {
            instances_.pop_back();
            std::rethrow_exception(failure);
        }
        return made;
    }

    /// In the order in which they were made.
    list all() const {
        platform::scoped_lock inside(guard_);
        return instances_;
    }

private:
    // Guards the list. Making an instance runs no foreign code, so that is done inside:
    // two first requests for a name need no second instance. Destroying one does, so
    // nothing may fail once it is made.
    mutable platform::plain_lock guard_;
    list instances_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::event_routing::impl
