// How a type of your own becomes a payload: a short declaration next to it.
//
//     struct document {
//         std::string path;
//         std::int32_t pages = 0;
//     };
//
//     template <>
//     struct zel::serialization::record<document> {
//         static constexpr std::string_view name = "struct document";
//         static constexpr std::tuple fields{field("path", &document::path),
//                                            field("pages", &document::pages)};
//     };
//
// The binary form follows the order of the fields, the JSON form is an object with a
// member per field, and the name is that of the data type: no two types of a process
// may have the same. The record must be default-constructible and movable. Its fields
// are of any type with these forms, other records included. A declaration that does not fit
// is refused where the type is used as a payload.
//
// The order and the types of the fields are what peers rely on: a changed record is
// another type and needs another name.
#pragma once

#include "framework/module_interface/type_name.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace zel::serialization {

/// How a field looks in JSON: as its type does.
struct usual_json_form {};

/// One field of a record: its JSON member and where it is. The last argument is there
/// for fields that look otherwise in JSON than their type does.
template <class Record, class Member, class JsonForm = usual_json_form>
struct field {
    constexpr field(std::string_view json_name, Member Record::*pointer, JsonForm = {})
        : name(json_name), member(pointer) {}

    std::string_view name;
    Member Record::*member;
};

/// To be specialised for every record.
template <class T>
struct record;

namespace detail {

template <class Record, class Fields>
inline constexpr bool are_fields_of = false;
template <class Record, class... Owners, class... Members, class... JsonForms>
inline constexpr bool
    are_fields_of<Record, const std::tuple<field<Owners, Members, JsonForms>...>> =
        (std::is_base_of_v<Owners, Record> && ...);

} // namespace detail

template <class T>
concept described_record = requires {
    { record<T>::name } -> std::convertible_to<std::string_view>;
    record<T>::fields;
}
&&detail::are_fields_of<T, decltype(record<T>::fields)>;

/// Calls the visitor with each field, in the order of their declaration.
template <described_record Record, class Visitor>
void for_each_field(Visitor&& visit) {
    std::apply([&](const auto&... fields) { (visit(fields), ...); }, record<Record>::fields);
}

namespace detail {

template <described_record Record>
inline constexpr bool has_different_field_names = std::apply(
    [](const auto&... fields) {
        const auto has_name = [&](std::string_view name) {
            return (std::size_t(fields.name == name) + ... + 0);
        };
        return ((has_name(fields.name) == 1) && ...);
    },
    record<Record>::fields);

} // namespace detail

/// Whole numbers of 8 to 64 bits; characters are not numbers.
template <class T>
concept integer = std::integral<T> && sizeof(T) <= sizeof(std::uint64_t) &&
                  !std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, wchar_t> &&
                  !std::same_as<T, char8_t> && !std::same_as<T, char16_t> &&
                  !std::same_as<T, char32_t>;

/// Real numbers that look the same everywhere. A `long double` does not, and some of its
/// bytes are never set.
template <class T>
concept real = std::same_as<T, float> || std::same_as<T, double>;

} // namespace zel::serialization

namespace zel {

template <serialization::described_record Record>
struct declared_type_name<Record> {
    static std::string text() { return std::string(serialization::record<Record>::name); }
};

} // namespace zel
