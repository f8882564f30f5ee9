// Images: the program and the shared libraries mapped into the process.
#pragma once

#include <platform/export.h>

#include <cstdint>
#include <string>

namespace zel::platform {

/// Names a mapped image; holds no reference to it.
enum class image_handle : std::uintptr_t { none = 0 };

/// The image that contains the address, `none` for an address outside of all. Takes no
/// lock.
ZEL_EXPORT image_handle image_of(const void* address) noexcept;

/// Whether it is the program itself, which is mapped for as long as the process lives.
/// The image must be mapped.
ZEL_EXPORT bool is_program(image_handle image) noexcept;

/// Absolute path of the file an image was loaded from; empty when unknown.
ZEL_EXPORT std::string image_path(image_handle image);

/// The file name of a library: "log" gives "liblog.so".
ZEL_EXPORT std::string library_file_name(const std::string& library);

struct load_result {
    image_handle image = image_handle::none;
    bool already_mapped = false; ///< before this call, by whomever
    std::string failure;         ///< the system's reason when the image is `none`
};

/// Maps a library and takes one reference to it. A file name without a folder
/// is looked for where the system looks, which includes this layer's folder.
ZEL_EXPORT load_result load_library(const std::string& file);

/// Takes a reference to a library only if it is mapped; `none` if it is not.
ZEL_EXPORT image_handle find_mapped_library(const std::string& file) noexcept;

/// Gives one reference back. True when that unmapped the library: false also when
/// another library is linked with it, or a thread keeps an object of it to its end.
ZEL_EXPORT bool unload_library(image_handle image) noexcept;

/// Address of an exported function; null also for the name of data.
ZEL_EXPORT void* find_function(image_handle image, const char* name) noexcept;

} // namespace zel::platform
