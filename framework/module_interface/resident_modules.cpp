// The loader and the lifetime service cannot be reached through themselves, and
// stay for the life of the process once they are loaded.
#include "framework/lifetime/end_of_life.h"
#include "framework/module_interface/lifetime_service.h"
#include "framework/module_interface/load_library.h"
#include "framework/module_interface/loader.h"
#include "framework/module_interface/version_check.h"

namespace zel::mi {

namespace {

template <class Interface>
Interface& resident_module(const std::string& library, const char* getter) {
    const auto file = library_file(library, implementation_address());
    const auto image = load_library(library, file).image;
    try {
        const auto get = reinterpret_cast<Interface* (*)()>(required_symbol(image, getter));
        Interface& module = *get();
        RequireInterface(module);
        return module;
    } catch (const exceptions::error&) {
        platform::unload_library(image); // asked for again, it is loaded again
        throw;
    }
}

} // namespace

IDllLoader& loader() {
    static IDllLoader& instance = resident_module<IDllLoader>("zel_dll_loader", "GetDllLoader");
    return instance;
}

IModuleLifetimeService& lifetime_service() {
    static IModuleLifetimeService& instance =
        resident_module<IModuleLifetimeService>("zel_module_lifetime", "GetModuleLifetimeDll");
    return instance;
}

platform::image_handle announce_this_image() {
    const auto image = platform::image_of(implementation_address());
    lifetime_service().AddImage(image, {&lifetime::run_end_of_life_actions,
                                        [] { return live_objects::current().objects; }});
    return image;
}

} // namespace zel::mi
