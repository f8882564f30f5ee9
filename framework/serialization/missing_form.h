// Which part of a type keeps it from being a payload, found while a program is compiled: a
// mistake in a declaration meets one sentence instead of the insides of the conversions.
//
// A form is a class template that has a definition for every type that it converts, as
// binary_form and json_form do.
#pragma once

#include "framework/serialization/record.h"

#include <array>
#include <concepts>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zel::serialization {

template <class T>
struct binary_form;

template <class T>
struct json_form;

/// A form like the others: has a definition for what can be made first and filled later.
template <class T>
struct value_form;

// Asked without std::default_initializable: Clang asks that inside of a record that holds
// others of its kind, where the answer is no, and remembers the answer.
template <class T>
requires requires {
    T();
} && std::movable<T>
struct value_form<T> {
};

namespace detail {

template <class...>
struct type_list {};

/// What a T is made of, as far as the form goes into it.
template <template <class> class Form, class T>
struct parts_of {
    using type = type_list<>;
};

template <template <class> class Form, class Element>
struct parts_of<Form, std::vector<Element>> {
    using type = type_list<Element>;
};

template <template <class> class Form, class Element, std::size_t Size>
struct parts_of<Form, std::array<Element, Size>> {
    using type = type_list<Element>;
};

template <template <class> class Form, class Value>
struct parts_of<Form, std::optional<Value>> {
    using type = type_list<Value>;
};

template <template <class> class Form, class Value>
struct parts_of<Form, std::map<std::string, Value>> {
    using type = type_list<Value>;
};

template <template <class> class Form, class Value>
struct parts_of<Form, std::unordered_map<std::string, Value>> {
    using type = type_list<Value>;
};

template <template <class> class Form, class First, class Second>
struct parts_of<Form, std::pair<First, Second>> {
    using type = type_list<First, Second>;
};

template <template <class> class Form, class... Elements>
struct parts_of<Form, std::tuple<Elements...>> {
    using type = type_list<Elements...>;
};

template <class Fields>
struct field_types;

template <class... Records, class... Members, class... JsonForms>
struct field_types<const std::tuple<field<Records, Members, JsonForms>...>> {
    using all = type_list<Members...>;
    /// A field that looks otherwise in JSON than its type does has the form that it needs,
    /// as `bool` has.
    using usual =
        type_list<std::conditional_t<std::same_as<JsonForms, usual_json_form>, Members, bool>...>;
};

template <described_record Record>
struct parts_of<binary_form, Record> {
    using type = typename field_types<decltype(record<Record>::fields)>::all;
};

template <described_record Record>
struct parts_of<json_form, Record> {
    using type = typename field_types<decltype(record<Record>::fields)>::usual;
};

struct nothing {};

template <template <class> class Form, class T, class... Around>
struct first_without;

template <template <class> class Form, class Parts, class... Around>
struct first_part_without {
    using type = nothing;
};

template <template <class> class Form, class First, class... Others, class... Around>
struct first_part_without<Form, type_list<First, Others...>, Around...> {
    using here = typename first_without<Form, First, Around...>::type;
    using type =
        typename std::conditional_t<std::same_as<here, nothing>,
                                    first_part_without<Form, type_list<Others...>, Around...>,
                                    std::type_identity<here>>::type;
};

template <template <class> class Form, class T>
concept has_definition = requires {
    sizeof(Form<T>);
};

/// The first part of T without the form, T itself included, or `nothing`. `Around` are the
/// types that T stands in: a record may hold others of its kind.
template <template <class> class Form, class T, class... Around>
struct first_without {
    static auto find() {
        if constexpr ((std::same_as<T, Around> || ...))
            return std::type_identity<nothing>();
        else if constexpr (!has_definition<Form, T>)
            return std::type_identity<T>();
        else
            return first_part_without<Form, typename parts_of<Form, T>::type, T, Around...>();
    }
    using type = typename decltype(find())::type;
};

/// Fails to compile for a type that lacks the form: once, however many ways lead to it.
template <template <class> class Form, class Missing>
struct refused {
    static_assert(std::is_same_v<Missing, nothing>,
                  "a payload is made of the types that binary_form.h and json_form.h list, and of "
                  "records and enumerations that are declared as record.h and enumeration.h show");
};

/// A record that is declared as it should be has every form but for this.
template <described_record Record>
struct refused<json_form, Record> {
    static_assert(has_different_field_names<Record>,
                  "two fields of a record have the same name in JSON");
};

template <class Missing>
struct refused<value_form, Missing> {
    static_assert(std::is_same_v<Missing, nothing>,
                  "what a payload is made of must be default-constructible and movable");
};

template <class Missing>
struct refused<declared_type_name, Missing> {
    static_assert(std::is_same_v<Missing, nothing>,
                  "a type with forms of its own needs a declared_type_name, too");
};

/// Whether T and all its parts have the form.
template <template <class> class Form, class T>
inline constexpr bool has_form = std::same_as<typename first_without<Form, T>::type, nothing>;

/// Where has_form is false: the sentence about the first part without it.
template <template <class> class Form, class T>
void refuse() {
    static_cast<void>(sizeof(refused<Form, typename first_without<Form, T>::type>));
}

/// Whether T has all that a payload needs.
template <class T>
inline constexpr bool is_payload_type = has_form<binary_form, T>&& has_form<json_form, T>&&
    has_form<value_form, T>&& has_form<declared_type_name, T>;

/// Where is_payload_type is false: one sentence about what is missing.
template <class T>
void refuse_payload_type() {
    if constexpr (!has_form<binary_form, T>)
        refuse<binary_form, T>();
    else if constexpr (!has_form<json_form, T>)
        refuse<json_form, T>();
    else if constexpr (!has_form<value_form, T>)
        refuse<value_form, T>();
    else
        refuse<declared_type_name, T>();
}

} // namespace detail

} // namespace zel::serialization
