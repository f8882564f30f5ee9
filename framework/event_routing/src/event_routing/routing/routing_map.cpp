#include "framework/event_routing/src/event_routing/routing/routing_map.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/event_routing/src/event_routing/routing/registration.h"
#include "framework/exceptions/exceptions.h"

namespace zel::event_routing::impl {

namespace {

// Whoever reads the log knows a failed cookie by this file and line.
constinit log::source_position
    unregistration_failed("event_routing/framework/event_routing/src/event_routing/routing_map.cpp",
                          313);

} // namespace

std::string join_path(std::string prefix, std::string_view subnode) {
    if (!prefix.empty())
        prefix += '.';
    prefix += subnode;
    return prefix;
}

registration_path::registration_path(std::string_view path)
    : exact(path != "*" && !path.ends_with(".*")), at_root(path == "*"), node_path(path) {
    const auto asterisk = path.find('*');
    if (asterisk != std::string_view::npos && (exact || asterisk + 1 < path.size()))
        throw exceptions::error("Wildcards are not supported except '*' as a last subnode.");
    if (!exact && !at_root)
        node_path.remove_suffix(2);
}

void report_unregistration_failure(const std::exception_ptr& failure,
                                   std::string (*cookie_type)()) {
    routing_log.report_handler_failure(unregistration_failed, failure,
                                       [&] { return cookie_type() + "::~KeepRegistered"; });
}

} // namespace zel::event_routing::impl
