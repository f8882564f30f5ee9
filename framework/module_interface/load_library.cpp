#include "framework/module_interface/load_library.h"

#include "framework/exceptions/exceptions.h"

#include <filesystem>

namespace zel::mi {

namespace {

// The file that `library` stands for. One that is there beside the caller is
// taken even if it should not load: then its failure is what the user must see.
std::string file_to_load(const std::string& library, const void* caller) {
    if (std::filesystem::path(library).has_parent_path())
        return library;
    const std::string file = platform::library_file_name(library);
    const std::filesystem::path image = platform::image_path(platform::image_of(caller));
    if (image.empty())
        return file;
    const std::filesystem::path beside = image.parent_path() / file;
    std::error_code ignored;
    return std::filesystem::exists(beside, ignored) ? beside.string() : file;
}

} // namespace

platform::image_handle load_library(const std::string& library, const void* caller) {
    const auto loaded = platform::load_library(file_to_load(library, caller));
    if (loaded.image == platform::image_handle::none)
        throw exceptions::error("The library " + library +
                                " could not be loaded: " + loaded.failure);
    return loaded.image;
}

void* required_symbol(platform::image_handle image, const char* symbol) {
    if (void* const address = platform::find_symbol(image, symbol))
        return address;
    throw exceptions::error("The library " + platform::image_path(image) + " does not export " +
                            symbol + ".");
}

} // namespace zel::mi
