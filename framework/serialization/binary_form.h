// Values as bytes: little-endian, no alignment, no headers.
//
//     bool                     1 byte, 0 or 1
//     integer                  as many bytes as it has
//     float, double            4 or 8 bytes (IEEE 754)
//     enumeration              its underlying integer, 4 bytes as a rule
//     byte string              length (4 bytes), the bytes
//     vector                   count (4 bytes), the elements
//     map with string keys     count (4 bytes), key and value of each
//     array, pair, tuple       the elements
//     optional                 1 byte, 0 or 1, then the value if there is one
//     record                   its fields in the order of their declaration
//
// A further type gets a specialisation of `binary_form` with these two functions.
// Reading throws exceptions::error, or std::runtime_error where bytes are missing.
#pragma once

#include "framework/serialization/binary_streams.h"
#include "framework/serialization/missing_form.h"
#include "framework/serialization/record.h"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zel::serialization {

/// Specialised for every type with a binary form:
///     static void write(out_blob_stream& out, const T& value);
///     static void read(in_blob_stream_base& in, T& value);
/// `read` is given a default-constructed value.
template <class T>
struct binary_form;

template <class T>
void Serialize(out_blob_stream& out, const T& value) {
    if constexpr (detail::has_form<binary_form, T>)
        binary_form<T>::write(out, value);
    else
        detail::refuse<binary_form, T>();
}

template <class T>
void Deserialize(in_blob_stream_base& in, T& value) {
    if constexpr (detail::has_form<binary_form, T>)
        binary_form<T>::read(in, value);
    else
        detail::refuse<binary_form, T>();
}

namespace detail {

[[noreturn]] void invalid_string_size(std::size_t size);
[[noreturn]] void invalid_container_size(std::size_t count);
[[noreturn]] void invalid_flag(unsigned flag);

/// A number's bytes in the order in which they are sent.
template <class Number>
std::array<std::uint8_t, sizeof(Number)> wire_order(Number number) {
    auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(Number)>>(number);
    if constexpr (std::endian::native == std::endian::big)
        std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

template <class Number>
void write_number(out_blob_stream& out, Number number) {
    const auto bytes = wire_order(number);
    out.write(bytes.data(), bytes.size());
}

template <class Number>
Number read_number(in_blob_stream_base& in) {
    Number number;
    std::memcpy(&number, in.get(sizeof(Number)), sizeof(Number));
    return std::bit_cast<Number>(wire_order(number));
}

inline void write_count(out_blob_stream& out, std::size_t count) {
    if (count > longest_blob)
        throw std::length_error("vector too long");
    write_number(out, static_cast<std::uint32_t>(count));
}

inline std::size_t read_container_count(in_blob_stream_base& in) {
    const std::size_t count = read_number<std::uint32_t>(in);
    if (count > in.total_size())
        invalid_container_size(count);
    return count;
}

inline void write_flag(out_blob_stream& out, bool flag) {
    write_number<std::uint8_t>(out, flag ? 1 : 0);
}

inline bool read_flag(in_blob_stream_base& in) {
    const unsigned flag = read_number<std::uint8_t>(in);
    if (flag > 1)
        invalid_flag(flag);
    return flag == 1;
}

/// Types whose bytes in memory are their bytes on the wire.
template <class T>
concept sent_as_it_lies = (integer<T> || real<T>)&&(sizeof(T) == 1 ||
                                                    std::endian::native == std::endian::little);

template <class... Values>
void write_each(out_blob_stream& out, const Values&... values) {
    (Serialize(out, values), ...);
}

template <class... Values>
void read_each(in_blob_stream_base& in, Values&... values) {
    (Deserialize(in, values), ...);
}

} // namespace detail

template <>
struct binary_form<bool> {
    static void write(out_blob_stream& out, bool value) { detail::write_flag(out, value); }
    static void read(in_blob_stream_base& in, bool& value) { value = detail::read_flag(in); }
};

template <class Number>
requires integer<Number> || real<Number>
struct binary_form<Number> {
    static void write(out_blob_stream& out, Number value) { detail::write_number(out, value); }
    static void read(in_blob_stream_base& in, Number& value) {
        value = detail::read_number<Number>(in);
    }
};

template <class Enumeration>
requires std::is_enum_v<Enumeration> &&
    detail::has_definition<binary_form, std::underlying_type_t<Enumeration>>
struct binary_form<Enumeration> {
    using number = std::underlying_type_t<Enumeration>;

    static void write(out_blob_stream& out, Enumeration value) {
        Serialize(out, static_cast<number>(value));
    }
    /// Any number is taken, named or not.
    static void read(in_blob_stream_base& in, Enumeration& value) {
        number read_value{};
        Deserialize(in, read_value);
        value = static_cast<Enumeration>(read_value);
    }
};

template <>
struct binary_form<std::string> {
    static void write(out_blob_stream& out, const std::string& value) {
        if (value.size() > longest_blob)
            throw std::length_error("string too long");
        detail::write_number(out, static_cast<std::uint32_t>(value.size()));
        out.write(value.data(), value.size());
    }
    static void read(in_blob_stream_base& in, std::string& value) {
        const std::size_t size = detail::read_number<std::uint32_t>(in);
        if (size > in.total_size())
            detail::invalid_string_size(size);
        const auto* const bytes = reinterpret_cast<const char*>(in.get(size));
        // assign would grow the string step by step, which makes a tenth of the whole cost.
        if (size > value.capacity())
            value = std::string(bytes, size);
        else
            value.assign(bytes, size);
    }
};

template <class Element>
struct binary_form<std::vector<Element>> {
    static void write(out_blob_stream& out, const std::vector<Element>& value) {
        detail::write_count(out, value.size());
        if constexpr (detail::sent_as_it_lies<Element>) {
            out.write(value.data(), value.size() * sizeof(Element));
        } else {
            const nesting::level inside(out);
            for (const auto& element : value)
                Serialize<Element>(out, element);
        }
    }

    static void read(in_blob_stream_base& in, std::vector<Element>& value) {
        const std::size_t count = detail::read_container_count(in);
        if constexpr (detail::sent_as_it_lies<Element>) {
            const std::uint8_t* const bytes = in.get(count * sizeof(Element));
            value.resize(count);
            if (count != 0)
                std::memcpy(value.data(), bytes, count * sizeof(Element));
        } else {
            const nesting::level inside(in);
            value.clear();
            value.reserve(std::min(count, believable_memory(in) / sizeof(Element)));
            for (std::size_t i = 0; i < count; ++i) {
                const std::size_t before = in.remaining();
                read_one(in, value);
                if (in.remaining() == before && !in.affords_empty_element())
                    detail::invalid_container_size(count);
            }
        }
    }

private:
    // A count is only a claim: it may not take more memory at once than what is there
    // could reasonably need. A container inside of another may claim half as much as that,
    // so however deep they are, all together claim less than `memory_per_byte`.
    static std::size_t believable_memory(const in_blob_stream_base& in) {
        constexpr std::size_t memory_per_byte = 16;
        return memory_per_byte * in.remaining() >> std::min(in.depth(), 63U);
    }

    static void read_one(in_blob_stream_base& in, std::vector<Element>& value) {
        if constexpr (std::same_as<Element, bool>)
            value.push_back(detail::read_flag(in));
        else
            Deserialize(in, value.emplace_back());
    }
};

namespace detail {

template <class Map>
struct map_binary_form {
    static void write(out_blob_stream& out, const Map& value) {
        write_count(out, value.size());
        const nesting::level inside(out);
        for (const auto& [key, mapped] : value)
            write_each(out, key, mapped);
    }

    /// When the bytes have several values for one key, the last one counts.
    static void read(in_blob_stream_base& in, Map& value) {
        const std::size_t count = read_container_count(in);
        const nesting::level inside(in);
        value.clear();
        for (std::size_t i = 0; i < count; ++i) {
            std::string key;
            typename Map::mapped_type mapped{};
            read_each(in, key, mapped);
            value.insert_or_assign(std::move(key), std::move(mapped));
        }
    }
};

} // namespace detail

template <class Value>
struct binary_form<std::map<std::string, Value>>
    : detail::map_binary_form<std::map<std::string, Value>> {};

template <class Value>
struct binary_form<std::unordered_map<std::string, Value>>
    : detail::map_binary_form<std::unordered_map<std::string, Value>> {};

template <class Value>
struct binary_form<std::optional<Value>> {
    static void write(out_blob_stream& out, const std::optional<Value>& value) {
        detail::write_flag(out, value.has_value());
        if (value)
            Serialize(out, *value);
    }
    static void read(in_blob_stream_base& in, std::optional<Value>& value) {
        value.reset();
        if (detail::read_flag(in))
            Deserialize(in, value.emplace());
    }
};

namespace detail {

template <class Tuple>
struct tuple_binary_form {
    static void write(out_blob_stream& out, const Tuple& value) {
        std::apply([&](const auto&... elements) { write_each(out, elements...); }, value);
    }
    static void read(in_blob_stream_base& in, Tuple& value) {
        std::apply([&](auto&... elements) { read_each(in, elements...); }, value);
    }
};

} // namespace detail

template <class... Elements>
struct binary_form<std::tuple<Elements...>> : detail::tuple_binary_form<std::tuple<Elements...>> {};

template <class First, class Second>
struct binary_form<std::pair<First, Second>> : detail::tuple_binary_form<std::pair<First, Second>> {
};

template <class Element, std::size_t Size>
struct binary_form<std::array<Element, Size>> {
    static void write(out_blob_stream& out, const std::array<Element, Size>& value) {
        for (const auto& element : value)
            Serialize(out, element);
    }
    static void read(in_blob_stream_base& in, std::array<Element, Size>& value) {
        for (auto& element : value)
            Deserialize(in, element);
    }
};

template <described_record Record>
struct binary_form<Record> {
    static void write(out_blob_stream& out, const Record& value) {
        for_each_field<Record>([&](const auto& field) { Serialize(out, value.*field.member); });
    }
    static void read(in_blob_stream_base& in, Record& value) {
        for_each_field<Record>([&](const auto& field) { Deserialize(in, value.*field.member); });
    }
};

} // namespace zel::serialization
