// What of an image somebody else may still call or destroy.
//
// Whoever unloads a plug-in has to know whether anything is left whose code lies in
// it: a handler that a call is inside of, a payload that somebody keeps. That is
// counted here, outside of the image, in a library that is never unmapped:
//
//     class sink {
//         ...
//         image_use code_; // before the callable, so that it is destroyed after it
//         std::function<void(const record&)> callable_;
//     };
//     sink(std::function<void(const record&)> f)
//         : code_(image_that_made(f), "log sink", ""), callable_(std::move(f)) {}
//
// The loader unmaps an image only when nothing of it is in use. A use ends after the
// last instruction of the image has returned to whoever holds the use, so there is no
// moment in which the image is counted as unused and still runs.
//
// What holds a use must not itself be code of the image: a class in a header, or what
// std::make_shared builds of it, is compiled into whoever uses it. The functions that make
// and destroy a holder stand in a source file of a library that outlives its plug-ins, or
// platform/counted_object.h makes it.
//
// Whoever makes a use keeps the image mapped by other means until it is made, by
// running in it, for example. The program itself is never unmapped and not counted.
#pragma once

#include <platform/library_image.h>
#include <platform/timeout.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace zel::platform {

struct image_uses;

/// As long as one lives, its image stays mapped. Any thread may make and end uses.
class image_use {
public:
    /// Of nothing.
    image_use() noexcept = default;

    /// Kind, name and note describe the use to a person and must outlive it: "handler
    /// of events", the path, what the registrant says of it. Throws std::bad_alloc,
    /// which can happen only to the first use of an image.
    ZEL_EXPORT image_use(image_handle image, const char* kind, std::string_view name,
                         std::string_view note = {});
    ~image_use() {
        if (place_)
            end_counted();
    }
    image_use(const image_use&) = delete;
    image_use& operator=(const image_use&) = delete;

    /// Before the object goes. Nothing happens the second time.
    void end() noexcept {
        if (place_)
            end_counted();
    }

private:
    friend struct image_uses;
    struct place;

    ZEL_EXPORT void end_counted() noexcept;

    place* place_ = nullptr; // null: not counted
    image_use* next_ = nullptr;
    image_use* previous_ = nullptr;
    const char* kind_ = "";
    std::string_view name_;
    std::string_view note_;
};

/// The image whose code a callable runs and is destroyed by, `none` for an empty one.
/// Such images are linked with `-Bsymbolic`; otherwise another image may be found that
/// holds the same type. Of a function that the program has taken from another image, by its
/// address, that image; what else a callable calls is not known.
template <class Result, class... Arguments>
image_handle image_that_made(const std::function<Result(Arguments...)>& callable) noexcept {
    if (!callable)
        return image_handle::none;
    const image_handle wraps_it = image_of(&callable.target_type());
    if (wraps_it != image_handle::none && !is_program(wraps_it))
        return wraps_it;
    const void* function = nullptr;
    if (const auto* const plain = callable.template target<Result (*)(Arguments...)>())
        function = reinterpret_cast<const void*>(*plain);
    else if (const auto* const safe = callable.template target<Result (*)(Arguments...) noexcept>())
        function = reinterpret_cast<const void*>(*safe);
    return function ? image_of(function) : wraps_it;
}

/// The image whose code destroys an object with virtual functions.
template <class T>
image_handle image_that_made(const std::shared_ptr<T>& object) noexcept {
    static_assert(std::is_polymorphic_v<T>);
    if (!object)
        return image_handle::none;
    const T& made = *object;
    return image_of(&typeid(made));
}

/// How many uses of an image there are. One that is alive all the time is never missed,
/// however many others come and go meanwhile.
ZEL_EXPORT std::size_t uses_of(image_handle image) noexcept;

/// A line for each use, such as "handler of events 'a.b' (title bar)", up to a number of
/// lines, in no order.
ZEL_EXPORT std::vector<std::string> describe_uses(image_handle image, std::size_t most);

/// Waits until there is no use. False when the time was not enough. Not a cancellation
/// point.
ZEL_EXPORT bool wait_until_unused(image_handle image, milliseconds timeout) noexcept;

} // namespace zel::platform
