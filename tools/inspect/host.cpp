#include "tools/inspect/host.h"

namespace inspect {

namespace {

// What users write for a file is one, also without a folder; the loader takes such a
// word for the name of a library.
std::string path_or_name(const std::string& library) {
    const bool is_file = library.ends_with(".so") || library.find(".so.") != std::string::npos;
    return is_file && library.find('/') == std::string::npos ? "./" + library : library;
}

} // namespace

host::host(const std::vector<component_source>& sources)
    : module_(zel::event_routing::get_module()),
      events_(zel::event_routing::get_event_routing(*module_)),
      requests_(zel::event_routing::get_request_routing(*module_)),
      snowballs_(zel::event_routing::get_snowball_routing(*module_)) {
    for (const auto& source : sources)
        components_.start(path_or_name(source.library), source.entry);
}

std::shared_ptr<zel::event_routing::IEventRouting> host::channel(const std::string& name) const {
    return zel::event_routing::get_named_event_routing(*module_, name);
}

} // namespace inspect
