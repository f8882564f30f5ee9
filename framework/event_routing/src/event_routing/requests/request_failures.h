// The exceptions with which a request fails.
#pragma once

#include "framework/event_routing/src/event_routing/requests/request_matches.h"

#include <event_routing/exceptions.h>

namespace zel::event_routing::impl {

[[noreturn]] void throw_not_processed(const std::string& path, const routing_parameters& parameters,
                                      std::vector<declined_handler> declined);

[[noreturn]] void throw_processed_twice(const std::string& path,
                                        const routing_parameters& parameters,
                                        const request_match& first, const request_match& second);

} // namespace zel::event_routing::impl
