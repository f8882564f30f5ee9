// The components that the user named, running in this process.
#pragma once

#include <event_routing/client.h>
#include <event_routing/component_host.h>

#include <memory>
#include <string>
#include <vector>

namespace inspect {

struct component_source {
    std::string library; ///< a file, or a name such as "spelling" for libspelling.so
    std::string entry;   ///< the function that starts it
};

/// The module and the components, which are started in order and end in reverse.
class host {
public:
    /// Throws exceptions::error, which names the library at fault.
    explicit host(const std::vector<component_source>& sources);

    zel::event_routing::IEventRouting& events() const { return *events_; }
    zel::event_routing::IRequestRouting& requests() const { return *requests_; }
    zel::event_routing::ISnowballRouting& snowballs() const { return *snowballs_; }
    /// Of a channel that is there already: asking for another one would make it.
    std::shared_ptr<zel::event_routing::IEventRouting> channel(const std::string& name) const;

private:
    std::shared_ptr<zel::event_routing::IModule> module_;
    std::shared_ptr<zel::event_routing::IEventRouting> events_;
    std::shared_ptr<zel::event_routing::IRequestRouting> requests_;
    std::shared_ptr<zel::event_routing::ISnowballRouting> snowballs_;
    zel::event_routing::component_host components_;
};

} // namespace inspect
