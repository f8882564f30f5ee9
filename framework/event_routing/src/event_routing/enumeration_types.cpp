#include "framework/event_routing/src/event_routing/enumeration_types.h"

#include "framework/serialization/data_type.h"

#include <event_routing/enumerate_handlers.h>

namespace zel::event_routing::impl {

void register_enumeration_types() {
    serialization::register_data_type<enumerate_handlers::input>();
    serialization::register_data_type<enumerate_handlers::output>();
    serialization::register_data_type<enumerate_handlers::output_2>();
}

} // namespace zel::event_routing::impl
