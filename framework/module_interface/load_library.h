// Where a library is looked for, and what is looked for in it.
#pragma once

#include <platform/library_image.h>

#include <string>

namespace zel::mi {

/// Loads a library by its name ("zel_log") or, with a folder in it, by its path,
/// and takes one reference. A name is looked for beside the image that contains
/// `caller`, then where the system looks. Throws exceptions::error naming the
/// library and the system's reason.
platform::image_handle load_library(const std::string& library, const void* caller);

/// Address of an export; throws exceptions::error naming library and symbol.
void* required_symbol(platform::image_handle image, const char* symbol);

} // namespace zel::mi
