// Names of the standard types that payloads and messages are made of.
#pragma once

#include "framework/module_interface/type_name.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>
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

namespace detail {

/// Of the elements that a map allocates.
template <class Key, class Value>
std::string map_allocator_name() {
    const auto element =
        template_type_name("struct std::pair", {type_name<Key>() + " const ", type_name<Value>()});
    return template_type_name("class std::allocator", {element});
}

} // namespace detail

template <class Key, class Value>
struct declared_type_name<std::map<Key, Value>> {
    static std::string text() {
        const auto key = type_name<Key>();
        return template_type_name("class std::map", {key, type_name<Value>(),
                                                     template_type_name("struct std::less", {key}),
                                                     detail::map_allocator_name<Key, Value>()});
    }
};

template <class Key, class Value>
struct declared_type_name<std::unordered_map<Key, Value>> {
    static std::string text() {
        const auto key = type_name<Key>();
        return template_type_name("class std::unordered_map",
                                  {key, type_name<Value>(),
                                   template_type_name("struct std::hash", {key}),
                                   template_type_name("struct std::equal_to", {key}),
                                   detail::map_allocator_name<Key, Value>()});
    }
};

template <class Value>
struct declared_type_name<std::optional<Value>> {
    static std::string text() {
        return template_type_name("class std::optional", {type_name<Value>()});
    }
};

template <class Element, std::size_t Size>
struct declared_type_name<std::array<Element, Size>> {
    static std::string text() {
        return template_type_name("class std::array", {type_name<Element>(), std::to_string(Size)});
    }
};

namespace detail {

// The 64-bit integers are named by their width, whichever of `long` and `long long` they are
// here; the other one of the two has its own name. Characters are not numbers.
template <class Other>
const char* number_name(Other) = delete;
constexpr const char* number_name(bool) {
    return "bool";
}
constexpr const char* number_name(float) {
    return "float";
}
constexpr const char* number_name(double) {
    return "double";
}
constexpr const char* number_name(signed char) {
    return "signed char";
}
constexpr const char* number_name(unsigned char) {
    return "unsigned char";
}
constexpr const char* number_name(short) {
    return "short";
}
constexpr const char* number_name(unsigned short) {
    return "unsigned short";
}
constexpr const char* number_name(int) {
    return "int";
}
constexpr const char* number_name(unsigned int) {
    return "unsigned int";
}
constexpr const char* number_name(long) {
    return std::same_as<long, std::int64_t> ? "__int64" : "long";
}
constexpr const char* number_name(unsigned long) {
    return std::same_as<unsigned long, std::uint64_t> ? "unsigned __int64" : "unsigned long";
}
constexpr const char* number_name(long long) {
    return std::same_as<long long, std::int64_t> ? "__int64" : "long long";
}
constexpr const char* number_name(unsigned long long) {
    return std::same_as<unsigned long long, std::uint64_t> ? "unsigned __int64"
                                                           : "unsigned long long";
}

} // namespace detail

template <class Number>
requires std::is_arithmetic_v<Number>
struct declared_type_name<Number> {
    static std::string text() { return detail::number_name(Number()); }
};

} // namespace zel
