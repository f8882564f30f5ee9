// The payload types that hostile bytes and documents are read as.
#pragma once

#include "framework/serialization/payload.h"

#include <event_routing/enumerate_handlers.h>

#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zel::fuzz {

enum class colour : std::int32_t { red = -1, green = 7 };

/// Every kind of field that does not nest.
struct leaf {
    bool flag = false;
    std::int8_t tiny = 0;
    std::uint64_t large = 0;
    float ratio = 0;
    double real = 0;
    colour tint = colour::red;
    std::string text;
    std::optional<std::int16_t> maybe;
    std::array<std::uint8_t, 2> two{};
    std::vector<bool> bits;
    std::vector<std::int32_t> numbers;

    bool operator==(const leaf& other) const {
        const auto bits_of = [](const leaf& l) {
            // Not a number is as good as any other content here.
            return std::pair(std::bit_cast<std::uint32_t>(l.ratio),
                             std::bit_cast<std::uint64_t>(l.real));
        };
        const auto rest_of = [](const leaf& l) {
            return std::tie(l.flag, l.tiny, l.large, l.tint, l.text, l.maybe, l.two, l.bits,
                            l.numbers);
        };
        return bits_of(*this) == bits_of(other) && rest_of(*this) == rest_of(other);
    }
};

/// A level costs four bytes and no text: the deepest and the largest data for their size.
struct twig {
    std::vector<twig> inside;

    bool operator==(const twig&) const = default;
};

/// Nests through everything that can nest.
struct tree {
    std::string name;
    std::vector<tree> inside;
    std::map<std::string, tree> sorted;
    std::unordered_map<std::string, std::vector<leaf>> hashed;
    std::optional<std::pair<leaf, std::array<twig, 2>>> maybe;

    bool operator==(const tree&) const = default;
};

using text_table = std::map<std::string, std::vector<std::string>>;

/// The library's own types, those of users, and what standard types make of them.
using fuzzed_types = std::tuple<std::type_identity<event_routing::enumerate_handlers::input>,
                                std::type_identity<event_routing::enumerate_handlers::output>,
                                std::type_identity<event_routing::enumerate_handlers::output_2>,
                                std::type_identity<leaf>, std::type_identity<twig>,
                                std::type_identity<tree>, std::type_identity<text_table>>;

/// Calls the visitor with each type's std::type_identity.
template <class Visitor>
void for_each_type(Visitor&& visit) {
    std::apply([&](auto... types) { (visit(types), ...); }, fuzzed_types());
}

} // namespace zel::fuzz

namespace zel::serialization {

template <>
struct enumeration<fuzz::colour> {
    static constexpr std::string_view name = "enum colour";
    static constexpr std::pair<fuzz::colour, std::string_view> values[] = {
        {fuzz::colour::red, "red"}, {fuzz::colour::green, "green"}};
};

template <>
struct record<fuzz::leaf> {
    using leaf = fuzz::leaf;
    static constexpr std::string_view name = "struct leaf";
    static constexpr std::tuple fields{
        field("flag", &leaf::flag),   field("tiny", &leaf::tiny),      field("large", &leaf::large),
        field("ratio", &leaf::ratio), field("real", &leaf::real),      field("tint", &leaf::tint),
        field("text", &leaf::text),   field("maybe", &leaf::maybe),    field("two", &leaf::two),
        field("bits", &leaf::bits),   field("numbers", &leaf::numbers)};
};

template <>
struct record<fuzz::twig> {
    static constexpr std::string_view name = "struct twig";
    static constexpr std::tuple fields{field("inside", &fuzz::twig::inside)};
};

template <>
struct record<fuzz::tree> {
    using tree = fuzz::tree;
    static constexpr std::string_view name = "struct tree";
    static constexpr std::tuple fields{
        field("name", &tree::name), field("inside", &tree::inside), field("sorted", &tree::sorted),
        field("hashed", &tree::hashed), field("maybe", &tree::maybe)};
};

} // namespace zel::serialization
