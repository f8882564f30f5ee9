// Type names for code that asks for them again and again.
#pragma once

#include "framework/module_interface/type_name.h"

#include <string>
#include <string_view>

namespace zel {

namespace detail {

/// A copy that stays for as long as this library is mapped.
std::string_view keep_text(const std::string& text);

} // namespace detail

/// The same as type_name, but put together only once in each library. The memory is never
/// given back.
template <class T>
[[gnu::visibility("hidden")]] std::string_view kept_type_name() {
    static const std::string_view text = detail::keep_text(type_name<T>());
    return text;
}

} // namespace zel
