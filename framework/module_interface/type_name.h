// Names of types as texts that are the same in every library of the process and
// on every compiler. They serve as registration keys and stand in messages, so
// they are declared per type, never taken from the compiler.
//
// A type declares its name next to its definition:
//
//     template <>
//     struct zel::declared_type_name<my::point> {
//         static std::string text() { return "struct my::point"; }
//     };
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace zel {

/// Not defined in general: using a type without a declared name does not compile.
template <class T>
struct declared_type_name;

template <class T>
std::string type_name() {
    return declared_type_name<T>::text();
}

/// The name of a template with its arguments, as in "class std::tuple<>".
inline std::string template_type_name(std::string_view name,
                                      std::initializer_list<std::string> arguments) {
    std::string text(name);
    text += '<';
    for (const auto& argument : arguments) {
        if (&argument != arguments.begin())
            text += ',';
        text += argument;
    }
    // Two closing brackets never touch.
    text += text.back() == '>' ? " >" : ">";
    return text;
}

} // namespace zel
