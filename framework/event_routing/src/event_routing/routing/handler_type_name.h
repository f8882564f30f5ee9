// How the types of request and snowball handlers are named in the log.
#pragma once

#include "framework/module_interface/standard_type_names.h"
#include "framework/serialization/data_holder.h"

#include <event_routing/routing_parameters.h>

#include <string>

template <>
struct zel::declared_type_name<zel::event_routing::routing_parameter_value> {
    static std::string text() { return "struct zel::event_routing::routing_parameter_value"; }
};

namespace zel::event_routing::impl {

inline std::string handler_type_name(const std::string& result) {
    const std::string holder = type_name<serialization::IDataHolder>();
    const std::string data = "class std::shared_ptr<" + holder + " const > const &";
    const std::string output = "class std::shared_ptr<" + holder + "> &";
    return "class std::function<" + result + " __cdecl(" + type_name<std::string>() + " const &," +
           data + "," + output + "," + output + "," + type_name<routing_parameters>() +
           " const &)>";
}

} // namespace zel::event_routing::impl
