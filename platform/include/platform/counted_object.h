// Shared objects that count as a use of the image that makes them.
//
// Such an object may be held by anybody, perhaps only weakly, and the last reference may
// go on any thread: its image stays mapped until both its destructor and its memory are
// done with. What std::make_shared builds would run code of the image after that, so
// the shared pointer's own part is built in this layer.
#pragma once

#include <platform/image_use.h>

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace zel::platform {

namespace detail {

/// Memory for one object; counted from now on.
ZEL_EXPORT void* allocate_counted(std::size_t size, image_handle image, const char* kind,
                                  std::string_view name);
/// Of an object that could not be made.
ZEL_EXPORT void release_counted(void* object) noexcept;
/// Once for an object that was made.
ZEL_EXPORT std::shared_ptr<void> share_counted(void* object,
                                               void (*destroy)(void*) noexcept) noexcept;

} // namespace detail

/// Makes an object of the image that calls this. Kind and name describe its use and must
/// outlive it (image_use). One allocation. Not for types with enable_shared_from_this.
template <class T, class... Arguments>
std::shared_ptr<T> make_counted(const char* kind, std::string_view name, Arguments&&... arguments) {
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    static_assert(
        !requires(T & object) { object.weak_from_this(); }, "it would not know its shared pointer");
    void (*const destroy)(void*) noexcept = [](void* object) noexcept {
        static_cast<T*>(object)->~T();
    };
    void* const place = detail::allocate_counted(
        sizeof(T), image_of(reinterpret_cast<const void*>(destroy)), kind, name);
    T* made = nullptr;
    try {
        made = ::new (place) T(std::forward<Arguments>(arguments)...);
    } catch (...) {
        detail::release_counted(place);
        throw;
    }
    return std::shared_ptr<T>(detail::share_counted(place, destroy), made);
}

} // namespace zel::platform
