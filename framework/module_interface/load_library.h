// Where a library is looked for, and what is looked for in it.
#pragma once

#include <platform/library_image.h>

#include <string>

namespace zel::mi {

/// The file that a library stands for: its name ("zel_log") is looked for beside
/// the image that contains `caller`, else left for the system to find; a path is
/// itself.
std::string library_file(const std::string& library, const void* caller);

/// Loads that file and takes one reference. Throws exceptions::error naming the
/// library and the system's reason.
platform::load_result load_library(const std::string& library, const std::string& file);

/// Tells the diagnostic observers that a library stays mapped, and what of it is in use.
/// Says nothing when that is nothing: then the process ends, or something outside of the
/// loader has it mapped.
void report_kept_library(platform::image_handle image, const std::string& path);

/// Address of an export; throws exceptions::error naming library and symbol.
void* required_symbol(platform::image_handle image, const char* symbol);

} // namespace zel::mi
