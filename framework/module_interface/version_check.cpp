#include "framework/module_interface/version_check.h"

#include <platform/diagnostics.h>
#include <platform/library_image.h>

#include <fmt/format.h>

namespace zel {

namespace {

std::string module_text(const void* address) {
    return fmt::format("Module: {}\n", platform::image_path(platform::image_of(address)));
}

std::string version_text(const std::string& interface_name, std::int32_t expected,
                         std::int32_t found, const std::type_info& implementation,
                         const void* implementation_address) {
    const void* const here = mi::implementation_address();
    return fmt::format("Wrong interface version implemented.\n"
                       "{}:\n\tInterface: {}\n\tVersion: {}\n"
                       "{}:\n\tImplementation: {}\n\tVersion: {}",
                       module_text(here), interface_name, expected,
                       module_text(implementation_address ? implementation_address : here),
                       platform::readable_type_name(implementation.name()), found);
}

} // namespace

WrongIfcVersion::WrongIfcVersion(const std::string& interface_name, std::int32_t expected,
                                 std::int32_t found, const std::type_info& implementation,
                                 const void* implementation_address)
    : error(version_text(interface_name, expected, found, implementation, implementation_address),
            __builtin_return_address(0)) {}

} // namespace zel
