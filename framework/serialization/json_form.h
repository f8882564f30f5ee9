// Values as JSON documents.
//
//     bool                     true or false
//     integer                  a number, exact with 64 bits; read from any number that fits,
//                              of which the fraction is dropped
//     float, double            a number
//     enumeration              see enumeration.h
//     byte string              a string; bytes that are not UTF-8 become U+FFFD, each one
//     vector                   an array; read from null too
//     map with string keys     an object; read from null too
//     array, pair, tuple       an array of exactly that size
//     optional                 null, or the value
//     record                   an object with a member per field; a missing one is read as null
//     Json::Value              itself
//
// A further type gets a specialisation of `json_form` with these two functions.
// What cannot be converted throws conversion_error.
#pragma once

#include "framework/serialization/enumeration.h"
#include "framework/serialization/json_place.h"
#include "framework/serialization/json_values.h"
#include "framework/serialization/missing_form.h"
#include "framework/serialization/record.h"

#include <array>
#include <concepts>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zel::serialization {

/// Specialised for every type with a JSON form:
///     static Json::Value to(const T& value, const json_place& place);
///     static void from(const Json::Value& json, T& value, const json_place& place);
/// `from` is given a default-constructed value.
template <class T>
struct json_form;

template <class T>
Json::Value ToJson(const T& value, const json_place& place = {}) {
    if constexpr (detail::has_form<json_form, T>)
        return json_form<T>::to(value, place);
    else
        return detail::refuse<json_form, T>(), Json::Value();
}

template <class T>
void FromJson(const Json::Value& json, T& value, const json_place& place = {}) {
    if constexpr (detail::has_form<json_form, T>)
        json_form<T>::from(json, value, place);
    else
        detail::refuse<json_form, T>();
}

template <>
struct json_form<bool> {
    static Json::Value to(bool value, const json_place&) { return value; }
    static void from(const Json::Value& json, bool& value, const json_place& place) {
        value = json_values::boolean(json, place);
    }
};

template <integer Integer>
struct json_form<Integer> {
    static Json::Value to(Integer value, const json_place&) { return json_values::number(value); }
    static void from(const Json::Value& json, Integer& value, const json_place& place) {
        value = json_values::integer_of<Integer>(json, place);
    }
};

template <real Real>
struct json_form<Real> {
    static Json::Value to(Real value, const json_place& place) {
        return json_values::real(static_cast<double>(value), place);
    }
    static void from(const Json::Value& json, Real& value, const json_place& place) {
        constexpr auto largest = static_cast<double>(std::numeric_limits<Real>::max());
        value = static_cast<Real>(json_values::real_of(json, largest, place));
    }
};

namespace detail {

template <described_enumeration Enumeration>
struct refused<json_form, Enumeration> {
    static_assert(has_different_values<Enumeration>,
                  "two values of an enumeration, or their names, are the same");
};

} // namespace detail

template <described_enumeration Enumeration>
requires detail::has_different_values<Enumeration>
struct json_form<Enumeration> {
    static Json::Value to(Enumeration value, const json_place&) {
        return impl::conversion_maps<Enumeration>()->EnumToJson(value);
    }
    static void from(const Json::Value& json, Enumeration& value, const json_place& place) {
        value = impl::conversion_maps<Enumeration>()->EnumFromJson(json, place);
    }
};

template <>
struct json_form<std::string> {
    static Json::Value to(const std::string& value, const json_place& place) {
        return json_values::string(value, place);
    }
    static void from(const Json::Value& json, std::string& value, const json_place& place) {
        value = json_values::string_of(json, place);
    }
};

template <>
struct json_form<Json::Value> {
    static Json::Value to(const Json::Value& value, const json_place& place) {
        json_values::require_nesting(value, place);
        return value;
    }
    static void from(const Json::Value& json, Json::Value& value, const json_place& place) {
        value = to(json, place);
    }
};

/// Any container with push_back, given how one element looks.
template <class Container, class ElementToJson>
Json::Value SeqContainerToJson(const Container& value, const json_place& place,
                               ElementToJson&& element_to_json) {
    Json::Value json(Json::arrayValue);
    for (const auto& element : value)
        json.append(element_to_json(element, json_place(place, json.size())));
    return json;
}

template <class Container, class ElementFromJson>
void SeqContainerFromJson(const Json::Value& json, Container& value, const json_place& place,
                          ElementFromJson&& element_from_json) {
    value.clear();
    if (json.isNull())
        return;
    if (!json.isArray())
        place.fail("zel::serialization::SeqContainerFromJson: Array value expected.");
    for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
        typename Container::value_type element{};
        element_from_json(json[i], element, json_place(place, i));
        value.push_back(std::move(element));
    }
}

template <class Element>
struct json_form<std::vector<Element>> {
    static Json::Value to(const std::vector<Element>& value, const json_place& place) {
        return SeqContainerToJson(value, place, &json_form<Element>::to);
    }
    static void from(const Json::Value& json, std::vector<Element>& value,
                     const json_place& place) {
        SeqContainerFromJson(json, value, place, &json_form<Element>::from);
    }
};

namespace detail {

template <class Map>
struct map_json_form {
    static Json::Value to(const Map& value, const json_place& place) {
        Json::Value json(Json::objectValue);
        for (const auto& [key, mapped] : value) {
            const json_place inside(place, key);
            json_values::add_member(json, key, ToJson(mapped, inside), inside);
        }
        return json;
    }

    static void from(const Json::Value& json, Map& value, const json_place& place) {
        value.clear();
        if (json.isNull())
            return;
        if (!json.isObject())
            place.fail("zel::serialization::MapFromJson: Object value expected.");
        for (auto member = json.begin(); member != json.end(); ++member) {
            std::string key = member.name();
            typename Map::mapped_type mapped{};
            FromJson(*member, mapped, json_place(place, key));
            value.insert_or_assign(std::move(key), std::move(mapped));
        }
    }
};

} // namespace detail

template <class Value>
struct json_form<std::map<std::string, Value>>
    : detail::map_json_form<std::map<std::string, Value>> {};

template <class Value>
struct json_form<std::unordered_map<std::string, Value>>
    : detail::map_json_form<std::unordered_map<std::string, Value>> {};

template <class Value>
struct json_form<std::optional<Value>> {
    static Json::Value to(const std::optional<Value>& value, const json_place& place) {
        return value ? ToJson(*value, place) : Json::Value();
    }
    static void from(const Json::Value& json, std::optional<Value>& value,
                     const json_place& place) {
        value.reset();
        if (!json.isNull())
            FromJson(json, value.emplace(), place);
    }
};

namespace detail {

template <class Tuple>
Json::Value elements_to_json(const Tuple& value, const json_place& place) {
    Json::Value json(Json::arrayValue);
    std::apply(
        [&](const auto&... elements) {
            (json.append(ToJson(elements, json_place(place, json.size()))), ...);
        },
        value);
    return json;
}

template <class Tuple>
void elements_from_json(const Json::Value& json, Tuple& value, const json_place& place,
                        const char* wrong_size) {
    if (!json.isArray())
        place.fail("zel::serialization::FromJson: Array value expected.");
    if (json.size() != std::tuple_size_v<Tuple>)
        place.fail(wrong_size);
    [[maybe_unused]] Json::ArrayIndex i = 0;
    const auto next = [&](auto& element) {
        FromJson(json[i], element, json_place(place, i));
        ++i;
    };
    std::apply([&](auto&... elements) { (next(elements), ...); }, value);
}

} // namespace detail

template <class... Elements>
struct json_form<std::tuple<Elements...>> {
    static Json::Value to(const std::tuple<Elements...>& value, const json_place& place) {
        return detail::elements_to_json(value, place);
    }
    static void from(const Json::Value& json, std::tuple<Elements...>& value,
                     const json_place& place) {
        detail::elements_from_json(
            json, value, place,
            "zel::serialization::FromJson: Array size is not he same as tuple size.");
    }
};

template <class First, class Second>
struct json_form<std::pair<First, Second>> {
    static Json::Value to(const std::pair<First, Second>& value, const json_place& place) {
        return detail::elements_to_json(value, place);
    }
    static void from(const Json::Value& json, std::pair<First, Second>& value,
                     const json_place& place) {
        detail::elements_from_json(json, value, place,
                                   "zel::serialization::FromJson: Array size should be exactly 2.");
    }
};

template <class Element, std::size_t Size>
struct json_form<std::array<Element, Size>> {
    static Json::Value to(const std::array<Element, Size>& value, const json_place& place) {
        return SeqContainerToJson(value, place, &json_form<Element>::to);
    }
    static void from(const Json::Value& json, std::array<Element, Size>& value,
                     const json_place& place) {
        if (json.isArray() && json.size() != Size)
            place.fail("zel::serialization::FromJson: Array size should be exactly " +
                       std::to_string(Size) + ".");
        detail::elements_from_json(json, value, place, "");
    }
};

template <described_record Record>
requires detail::has_different_field_names<Record>
struct json_form<Record> {
    static Json::Value to(const Record& value, const json_place& place) {
        Json::Value json(Json::objectValue);
        for_each_field<Record>(
            [&]<class R, class Member, class Form>(const field<R, Member, Form>& one) {
                json[std::string(one.name)] =
                    form_of<Member, Form>::to(value.*one.member, json_place(place, one.name));
            });
        return json;
    }

    static void from(const Json::Value& json, Record& value, const json_place& place) {
        for_each_field<Record>(
            [&]<class R, class Member, class Form>(const field<R, Member, Form>& one) {
                form_of<Member, Form>::from(json_values::member(json, one.name), value.*one.member,
                                            json_place(place, one.name));
            });
    }

private:
    template <class Member, class Form>
    using form_of =
        std::conditional_t<std::same_as<Form, usual_json_form>, json_form<Member>, Form>;
};

} // namespace zel::serialization
