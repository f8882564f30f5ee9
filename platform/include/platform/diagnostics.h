// Continuable diagnostics and the guard around foreign code.
//
// `raise_exception` tells process-wide observers (a debugger, a crash reporter,
// a test) of something that went wrong and returns to the code that raised it.
#pragma once

#include <platform/export.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace zel::platform {

/// Codes raised by the libraries of this product. An observer looks at the number of
/// arguments: the report of an end of life that failed has three, with the address of the
/// std::exception last; other texts have two.
enum class diagnostic : std::uint32_t {
    text_report = 0x60AA0004,      ///< length of a text, its address, more by case
    exception_report = 0x60AA0006, ///< address of the std::exception_ptr
};

using raise_arguments = std::span<const std::uintptr_t>;

/// Tells every observer; a load and a branch when there are none.
ZEL_EXPORT void raise_exception(diagnostic code, raise_arguments arguments) noexcept;

/// Tells every observer a text, as a text_report with its length and its address.
ZEL_EXPORT void raise_text_report(std::string_view text) noexcept;

/// Is told of every raise in the process for as long as the object lives.
///
/// It is called on the raising thread, possibly on several threads at once, without a lock
/// and with cancellation held off. What it throws is dropped. The destructor does not wait
/// for running calls, so the function must own what it needs.
class ZEL_EXPORT exception_observer {
public:
    using function = std::function<void(diagnostic code, raise_arguments arguments)>;

    explicit exception_observer(function observer);
    ~exception_observer();
    exception_observer(const exception_observer&) = delete;
    exception_observer& operator=(const exception_observer&) = delete;

private:
    struct entry;
    struct registry;
    friend ZEL_EXPORT void raise_exception(diagnostic code, raise_arguments arguments) noexcept;

    std::shared_ptr<entry> entry_;
};

/// For `catch (...)`: returns what was thrown. If it is no exception but the forced
/// unwinding of a thread that is cancelled or exits, the unwinding goes on from here.
ZEL_EXPORT std::exception_ptr caught_exception();

/// Runs the body and returns what it threw, of whatever type, or null. The forced
/// unwinding of a thread passes through.
template <class Body>
std::exception_ptr guarded(Body&& body) {
    try {
        body();
    } catch (...) {
        return caught_exception();
    }
    return nullptr;
}

/// A type's name as written in source, from what the compiler calls it.
ZEL_EXPORT std::string readable_type_name(const char* compiler_name);

} // namespace zel::platform
