#include "tools/inspect/host.h"

#include "tools/inspect/printable.h"

#include <event_routing/component.h>

namespace inspect {

using zel::exceptions::error;

namespace {

// What users write for a file is one, also without a folder; the loader takes such a
// word for the name of a library.
std::string path_or_name(const std::string& library) {
    const bool is_file = library.ends_with(".so") || library.find(".so.") != std::string::npos;
    return is_file && library.find('/') == std::string::npos ? "./" + library : library;
}

} // namespace

loaded_component::loaded_component(const component_source& source)
    : library_(path_or_name(source.library)) {
    decltype(start_event_routing_component)* start = nullptr;
    try {
        start = library_.function<decltype(start_event_routing_component)>(source.entry.c_str());
    } catch (const error& failure) {
        throw error(std::string(failure.what()) + " --entry names another function.");
    }
    // What is thrown is code of the library: only its text may outlive it.
    if (const auto failure = zel::platform::guarded([&] { start(component_); }))
        throw error("The component '" + printable(source.library) +
                    "' could not be started: " + zel::exceptions::brief_text(failure));
}

host::host()
    : module_(zel::event_routing::get_module()),
      events_(zel::event_routing::get_event_routing(*module_)),
      requests_(zel::event_routing::get_request_routing(*module_)),
      snowballs_(zel::event_routing::get_snowball_routing(*module_)) {}

// Made whole first, so that components that were started end in reverse also when a later one
// cannot be started.
host::host(const std::vector<component_source>& sources) : host() {
    for (const auto& source : sources)
        components_.emplace_back(source);
}

host::~host() {
    while (!components_.empty())
        components_.pop_back();
}

std::shared_ptr<zel::event_routing::IEventRouting> host::channel(const std::string& name) const {
    return zel::event_routing::get_named_event_routing(*module_, name);
}

} // namespace inspect
