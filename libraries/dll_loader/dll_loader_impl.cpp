#include "libraries/dll_loader/dll_loader_impl.h"

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/load_library.h"

#include <filesystem>
#include <fmt/format.h>
#include <utility>

namespace zel::mi {

platform::image_handle DllLoaderImpl::load_dll(const std::string& library_name,
                                               const void* caller) {
    const std::string file = library_file(library_name, caller);
    const std::string name = std::filesystem::path(file).filename().string();
    const auto lock = lock_of(name);
    threading::shared_lock_guard nobody_ends_it(*lock);
    const auto loaded = load_library(library_name, file);
    bool one_too_many = false;
    {
        platform::scoped_lock inside(guard_);
        const auto [known, is_new] = libraries_.try_emplace(loaded.image);
        if (is_new)
            known->second = {name, 0, !loaded.already_mapped, false};
        ++known->second.references;
        one_too_many = std::exchange(known->second.kept_mapped, false);
    }
    if (one_too_many)
        platform::unload_library(loaded.image); // the new reference does from now on
    return loaded.image;
}

bool DllLoaderImpl::free_dll(platform::image_handle image) {
    const auto lock = lock_of(name_of(image));
    threading::exclusive_lock_guard nobody_loads_it(*lock);
    const bool ends = give_back(image);
    if (ends && !lifetime_service().EndImage(image)) {
        keep_mapped(image);
        return false;
    }
    forget(image);
    platform::unload_library(image);
    return ends;
}

std::shared_ptr<DllLoaderImpl::name_lock> DllLoaderImpl::lock_of(const std::string& name) {
    platform::scoped_lock inside(guard_);
    auto& lock = name_locks_[name];
    if (!lock)
        lock = std::make_shared<name_lock>();
    return lock;
}

std::string DllLoaderImpl::name_of(platform::image_handle image) {
    platform::scoped_lock inside(guard_);
    const auto known = libraries_.find(image);
    if (known == libraries_.end() || known->second.references == 0)
        throw exceptions::error(fmt::format(
            "free_dll: the image {:#x} was not loaded by load_dll, or is freed already.",
            static_cast<std::uintptr_t>(image)));
    return known->second.name;
}

// True for the last reference to a library that has to be ended.
bool DllLoaderImpl::give_back(platform::image_handle image) {
    name_of(image); // it may have been freed while this thread waited
    platform::scoped_lock inside(guard_);
    library& known = libraries_[image];
    return --known.references == 0 && known.mapped_here;
}

void DllLoaderImpl::keep_mapped(platform::image_handle image) {
    platform::scoped_lock inside(guard_);
    libraries_[image].kept_mapped = true;
}

void DllLoaderImpl::forget(platform::image_handle image) {
    platform::scoped_lock inside(guard_);
    if (libraries_[image].references == 0)
        libraries_.erase(image);
}

} // namespace zel::mi
