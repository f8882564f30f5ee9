#include <platform/library_image.h>

#include <array>
#include <climits>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>

namespace zel::platform {

// An image is named by its link map, which the system gives for an address as
// well as for a loaded library; it also is the handle that the loader returns.

namespace {

constexpr int loading_mode = RTLD_NOW | RTLD_LOCAL;

const link_map* map_of(image_handle image) noexcept {
    return reinterpret_cast<const link_map*>(image);
}

void* handle_of(image_handle image) noexcept {
    return reinterpret_cast<void*>(image);
}

image_handle image_from(void* handle) noexcept {
    link_map* map = nullptr;
    if (!handle || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
        return image_handle::none;
    return static_cast<image_handle>(reinterpret_cast<std::uintptr_t>(map));
}

// Whether an exported name stands for data. `dladdr1` finds no image for data that each
// thread has for itself.
bool is_data(const void* address) noexcept {
    Dl_info info{};
    const ElfW(Sym)* symbol = nullptr;
    return dladdr1(address, &info, const_cast<void**>(reinterpret_cast<const void**>(&symbol)),
                   RTLD_DL_SYMENT) == 0 ||
           (symbol && ELF64_ST_TYPE(symbol->st_info) == STT_OBJECT);
}

} // namespace

image_handle image_of(const void* address) noexcept {
    link_map* map = nullptr;
    if (!address)
        return image_handle::none;
#if __GLIBC_PREREQ(2, 35)
    dl_find_object found{};
    if (_dl_find_object(const_cast<void*>(address), &found) == 0)
        map = found.dlfo_link_map;
#else
    Dl_info info{};
    if (dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0)
        return image_handle::none;
#endif
    return static_cast<image_handle>(reinterpret_cast<std::uintptr_t>(map));
}

bool is_program(image_handle image) noexcept {
    return *map_of(image)->l_name == '\0';
}

std::string image_path(image_handle image) {
    if (image == image_handle::none)
        return {};
    const char* const name = map_of(image)->l_name;
    if (is_program(image)) {
        std::error_code failure;
        return std::filesystem::read_symlink("/proc/self/exe", failure).string();
    }
    // The name may be relative to a folder the process has left since; the folder
    // noted at loading time is not.
    std::array<char, PATH_MAX> folder{};
    if (dlinfo(handle_of(image), RTLD_DI_ORIGIN, folder.data()) != 0)
        return name;
    return (std::filesystem::path(folder.data()) / std::filesystem::path(name).filename())
        .lexically_normal()
        .string();
}

std::string library_file_name(const std::string& library) {
    return "lib" + library + ".so";
}

image_handle find_mapped_library(const std::string& file) noexcept {
    return image_from(dlopen(file.c_str(), loading_mode | RTLD_NOLOAD));
}

load_result load_library(const std::string& file) {
    if (const auto mapped = find_mapped_library(file); mapped != image_handle::none)
        return {mapped, true, {}};
    void* const handle = dlopen(file.c_str(), loading_mode);
    if (!handle) {
        const char* const reason = dlerror();
        return {image_handle::none, false, reason ? reason : "unknown reason"};
    }
    return {image_from(handle), false, {}};
}

bool unload_library(image_handle image) noexcept {
    if (image == image_handle::none)
        return false;
    const void* const inside = map_of(image)->l_ld;
    dlclose(handle_of(image));
    return image_of(inside) != image;
}

void* find_function(image_handle image, const char* name) noexcept {
    // Given no image, the system would search all of them.
    void* const found = image == image_handle::none ? nullptr : dlsym(handle_of(image), name);
    return found && is_data(found) ? nullptr : found;
}

} // namespace zel::platform
