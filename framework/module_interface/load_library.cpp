#include "framework/module_interface/load_library.h"

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/loader.h"

#include <platform/diagnostics.h>

#include <filesystem>

namespace zel::mi {

std::string library_file(const std::string& library, const void* caller) {
    if (std::filesystem::path(library).has_parent_path())
        return library;
    const std::string file = platform::library_file_name(library);
    const std::filesystem::path image = platform::image_path(platform::image_of(caller));
    if (image.empty())
        return file;
    // One that is there is taken even if it should not load: then its failure is
    // what the user must see.
    const std::filesystem::path beside = image.parent_path() / file;
    std::error_code ignored;
    return std::filesystem::exists(beside, ignored) ? beside.string() : file;
}

platform::load_result load_library(const std::string& library, const std::string& file) {
    auto loaded = platform::load_library(file);
    if (loaded.image == platform::image_handle::none)
        throw exceptions::error("The library " + library +
                                " could not be loaded: " + loaded.failure);
    return loaded;
}

void report_kept_library(platform::image_handle image, const std::string& path) {
    constexpr std::size_t most_named = 10;
    const auto uses = loader().describe_uses(image, most_named);
    if (uses.empty())
        return;
    std::string text = "The library " + path + " stays mapped";
    const char* separator = ", because it is in use: ";
    for (const auto& use : uses) {
        text += separator + use;
        separator = ", ";
    }
    platform::raise_text_report(text + ".");
}

void* required_symbol(platform::image_handle image, const char* symbol) {
    if (void* const address = platform::find_function(image, symbol))
        return address;
    throw exceptions::error("The library " + platform::image_path(image) + " does not export " +
                            symbol + ".");
}

} // namespace zel::mi
