#include "libraries/dll_loader/dll_loader_impl.h"

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/load_library.h"

#include <fmt/format.h>

#include <utility>

namespace zel::mi {

const LibraryDescriptor& DllLoaderImpl::GetLibraryDescriptor() const {
    static const LibraryDescriptor descriptor;
    return descriptor;
}

platform::image_handle DllLoaderImpl::load_dll(const std::string& library_name,
                                               const void* caller) {
    const auto image = load_library(library_name, caller);
    platform::scoped_lock inside(guard_);
    library& known = libraries_[image];
    ++known.references;
    if (std::exchange(known.kept_mapped, false))
        platform::unload_library(image); // the new reference does from now on
    return image;
}

bool DllLoaderImpl::free_dll(platform::image_handle image) {
    if (!give_back(image)) {
        platform::unload_library(image);
        return false;
    }
    if (!lifetime_service().EndImage(image)) {
        keep_mapped(image);
        return false;
    }
    platform::unload_library(image);
    return true;
}

// True for the last reference.
bool DllLoaderImpl::give_back(platform::image_handle image) {
    platform::scoped_lock inside(guard_);
    const auto known = libraries_.find(image);
    if (known == libraries_.end() || known->second.references == 0)
        throw exceptions::error(fmt::format(
            "free_dll: the image {:#x} was not loaded by load_dll, or is freed already.",
            static_cast<std::uintptr_t>(image)));
    if (--known->second.references > 0)
        return false;
    libraries_.erase(known);
    return true;
}

void DllLoaderImpl::keep_mapped(platform::image_handle image) {
    platform::scoped_lock inside(guard_);
    library& known = libraries_[image];
    // Somebody may have loaded it again meanwhile; then that reference does.
    if (known.references > 0)
        platform::unload_library(image);
    else
        known.kept_mapped = true;
}

} // namespace zel::mi
