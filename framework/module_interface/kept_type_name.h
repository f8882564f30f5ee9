// Type names that are asked for all the time.
#pragma once

#include "framework/module_interface/type_name.h"

#include <string>
#include <string_view>

namespace zel {

namespace detail {

/// A copy that stays for as long as this library is mapped.
std::string_view keep_text(const std::string& text);

} // namespace detail

/// The same as type_name, put together only once. For types, not for names that vary:
/// the memory is never given back.
template <class T>
[[gnu::visibility("hidden")]] std::string_view kept_type_name() {
    static const std::string_view text = detail::keep_text(type_name<T>());
    return text;
}

} // namespace zel
