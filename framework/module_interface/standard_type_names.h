// Names of the standard types that payloads and messages are made of.
#pragma once

#include "framework/module_interface/type_name.h"

#include <tuple>
#include <utility>
#include <vector>

namespace zel {

/// Of a standard container with its usual allocator: "class std::list<T,...>".
inline std::string container_type_name(std::string_view name, const std::string& element) {
    return template_type_name(name,
                              {element, template_type_name("class std::allocator", {element})});
}

template <>
struct declared_type_name<std::string> {
    static std::string text() {
        return "class std::basic_string<char,struct std::char_traits<char>,"
               "class std::allocator<char> >";
    }
};

template <class... Elements>
struct declared_type_name<std::tuple<Elements...>> {
    static std::string text() {
        return template_type_name("class std::tuple", {type_name<Elements>()...});
    }
};

template <class First, class Second>
struct declared_type_name<std::pair<First, Second>> {
    static std::string text() {
        return template_type_name("struct std::pair", {type_name<First>(), type_name<Second>()});
    }
};

template <class Element>
struct declared_type_name<std::vector<Element>> {
    static std::string text() {
        return container_type_name("class std::vector", type_name<Element>());
    }
};

} // namespace zel
