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

template <>
struct declared_type_name<bool> {
    static std::string text() { return "bool"; }
};

template <>
struct declared_type_name<float> {
    static std::string text() { return "float"; }
};

template <>
struct declared_type_name<double> {
    static std::string text() { return "double"; }
};

template <>
struct declared_type_name<signed char> {
    static std::string text() { return "signed char"; }
};

template <>
struct declared_type_name<unsigned char> {
    static std::string text() { return "unsigned char"; }
};

template <>
struct declared_type_name<short> {
    static std::string text() { return "short"; }
};

template <>
struct declared_type_name<unsigned short> {
    static std::string text() { return "unsigned short"; }
};

template <>
struct declared_type_name<int> {
    static std::string text() { return "int"; }
};

template <>
struct declared_type_name<unsigned int> {
    static std::string text() { return "unsigned int"; }
};

// The 64-bit integers go by their width, whichever of the two long types they are; the
// other one of the two keeps its own name.
template <>
struct declared_type_name<std::int64_t> {
    static std::string text() { return "__int64"; }
};

template <>
struct declared_type_name<std::uint64_t> {
    static std::string text() { return "unsigned __int64"; }
};

template <class Integer>
requires(std::same_as<Integer, long> || std::same_as<Integer, long long>) &&
    (!std::same_as<Integer, std::int64_t>)struct declared_type_name<Integer> {
    static std::string text() { return std::same_as<Integer, long> ? "long" : "long long"; }
};

template <class Integer>
requires(std::same_as<Integer, unsigned long> || std::same_as<Integer, unsigned long long>) &&
    (!std::same_as<Integer, std::uint64_t>)struct declared_type_name<Integer> {
    static std::string text() {
        return std::same_as<Integer, unsigned long> ? "unsigned long" : "unsigned long long";
    }
};

} // namespace zel
