// The data types of the requests that list handlers.
#pragma once

namespace zel::event_routing::impl {

/// Makes them known to the serialization library. Throws when it cannot be had.
void register_enumeration_types();

} // namespace zel::event_routing::impl
