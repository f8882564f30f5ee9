#include "examples/directory_index/component_library.h"

namespace directory_index {

component_library::component_library(const std::string& name) : library_(name) {
    const auto start =
        library_.function<decltype(start_event_routing_component)>("start_event_routing_component");
    // What is thrown is code of the library: only its text may outlive it.
    const auto failure = zel::platform::guarded([&] { start(component_); });
    if (failure || !component_) {
        component_.reset();
        throw zel::exceptions::error(
            "The library " + name + " could not be used: " +
            (failure ? zel::exceptions::brief_text(failure) : "it made no component"));
    }
}

} // namespace directory_index
