// Operations whose service is still to come.
#pragma once

#include "framework/exceptions/exceptions.h"

#include <string>

namespace zel::event_routing::impl {

[[noreturn]] inline void not_yet_available(const std::string& operation) {
    throw exceptions::fatal(operation + " is not available in this version of event_routing.");
}

} // namespace zel::event_routing::impl
