#include "examples/directory_index/component_library.h"

namespace directory_index {

component_library::component_library(const std::string& name) : library_(name) {
    const auto start =
        library_.function<decltype(start_event_routing_component)>("start_event_routing_component");
    std::string reason = "it made no component";
    // What is thrown is code of the library: only its text may outlive it.
    if (const auto failure = zel::platform::guarded([&] { start(component_); }))
        reason = zel::exceptions::brief_text(failure);
    if (!component_)
        throw zel::exceptions::error("The library " + name + " could not be used: " + reason);
}

} // namespace directory_index
