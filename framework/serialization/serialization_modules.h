// The serialization library, loaded on first use, and this library's registrations
// with it.
#pragma once

#include "framework/serialization/bin_serialization_module.h"
#include "framework/serialization/json_conversion_module.h"

#include <tasklib/registrations.h>

#include <functional>
#include <memory>

namespace zel::serialization {

/// Each throws exceptions::error or WrongIfcVersion when the library cannot be had, to
/// every caller, and exceptions::error when it has ended.
std::shared_ptr<IBinSerializationModule> get_bin_serialization_module();
std::shared_ptr<IJsonConversionModule> get_json_conversion_module();

/// Runs the function on the cookies of the data types that this library registered. They
/// are dropped when it ends, right before it gives the serialization library back.
void use_type_registrations(const std::function<void(tasklib::registrations&)>& use);

} // namespace zel::serialization
