// A part of the program that lives from events alone.
//
// A component registers its handlers when it is made and holds their cookies as
// its last member, so that no handler runs on a half-destroyed component. It sees
// of the others only what they broadcast (paths.h); any of them may be missing.
#pragma once

#include <event_routing/client.h>

#include <memory>
#include <string>
#include <vector>

namespace directory_index {

using zel::event_routing::event_data;
using zel::event_routing::IEventRouting;
using zel::event_routing::routing_parameters;
using cookie = std::shared_ptr<zel::tasklib::keep_registered>;
using cookies = std::vector<cookie>;

class component {
public:
    component() = default;
    component(const component&) = delete;
    component& operator=(const component&) = delete;
    virtual ~component() = default;

    /// What the component found out, in whole lines; empty when there is nothing.
    virtual std::string report() const = 0;
};

} // namespace directory_index
