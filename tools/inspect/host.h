// The components that the user named, running in this process.
#pragma once

#include <event_routing/client.h>

#include <framework/module_interface/neighbour_module.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace inspect {

struct component_source {
    std::string library; ///< a file, or a name such as "spelling" for libspelling.so
    std::string entry;   ///< the function that starts it
};

/// A component with the library it lives in.
class loaded_component {
public:
    /// Throws exceptions::error, which names the library.
    explicit loaded_component(const component_source& source);

private:
    zel::mi::loaded_library library_; // outlives the component, whose code is in it
    // Of a type of its own; only its end concerns the host.
    std::shared_ptr<void> component_;
};

/// The module and the components, which are started in order and end in reverse.
class host {
public:
    explicit host(const std::vector<component_source>& sources);
    ~host();
    host(const host&) = delete;
    host& operator=(const host&) = delete;

    zel::event_routing::IEventRouting& events() const { return *events_; }
    zel::event_routing::IRequestRouting& requests() const { return *requests_; }
    zel::event_routing::ISnowballRouting& snowballs() const { return *snowballs_; }
    /// Of a channel that is there already: asking for another one would make it.
    std::shared_ptr<zel::event_routing::IEventRouting> channel(const std::string& name) const;

private:
    host(); // without components

    std::shared_ptr<zel::event_routing::IModule> module_;
    std::shared_ptr<zel::event_routing::IEventRouting> events_;
    std::shared_ptr<zel::event_routing::IRequestRouting> requests_;
    std::shared_ptr<zel::event_routing::ISnowballRouting> snowballs_;
    std::list<loaded_component> components_;
};

} // namespace inspect
