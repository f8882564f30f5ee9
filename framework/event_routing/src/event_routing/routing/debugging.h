// The log of the routing services.
#pragma once

#include "framework/log/log_area.h"

namespace zel::event_routing::impl {

inline constexpr log::log_area routing_log("event_rout");

} // namespace zel::event_routing::impl
