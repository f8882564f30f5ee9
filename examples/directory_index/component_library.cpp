#include "examples/directory_index/component_library.h"

namespace directory_index {

component_library::component_library(const std::string& name) : library_(name) {
    const auto make = library_.function<decltype(make_directory_index_component)>(
        "make_directory_index_component");
    std::string reason = "it made no component";
    // What is thrown is code of the library: only its text may outlive it.
    if (const auto failure = zel::platform::guarded([&] { make(component_); }))
        reason = zel::exceptions::brief_text(failure);
    if (!component_)
        throw zel::exceptions::error("The library " + name + " could not be used: " + reason);
    zel::RequireInterface(*component_);
}

} // namespace directory_index
