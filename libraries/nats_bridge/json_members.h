// Structures read from JSON objects by a table of their members, and the same table as a schema.
//
//     template <>
//     const members<room>& members_of() {
//         static const members<room> all{required("name", &room::name),
//                                        optional("seats", &room::seats)};
//         return all;
//     }
//     ...
//     form<room>::read(json, json_place(), my_room);
//
// Unlike a payload's document, one that people write is refused where anything in it is unknown
// or of another kind. What is wrong is a serialization::conversion_error with its place.
#pragma once

#include "framework/serialization/json_place.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <json/value.h>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zel::event_routing::nats {

using serialization::json_place;

template <class Structure>
struct member {
    const char* name;
    bool is_required;
    std::function<void(Structure& into, const Json::Value& json, const json_place& place)> read;
    Json::Value (*schema)();
};

template <class Structure>
using members = std::vector<member<Structure>>;

/// Specialised for each structure that is read.
template <class Structure>
const members<Structure>& members_of();

/// The names of the values of an enumeration; specialised for each that is read.
template <class Enumeration>
const std::vector<std::pair<const char*, Enumeration>>& names_of();

inline Json::Value schema_of_type(const char* type) {
    Json::Value schema;
    schema["type"] = type;
    return schema;
}

/// How a value is read, and what a schema says of it. This one is for structures.
template <class Structure>
struct form {
    static void read(const Json::Value& json, const json_place& place, Structure& into) {
        if (!json.isObject())
            place.fail("an object is expected.");
        for (const auto& name : json.getMemberNames())
            if (!is_known(name))
                json_place(place, name).fail("there is no such option.");
        for (const auto& known : members_of<Structure>())
            if (json.isMember(known.name))
                known.read(into, json[known.name], json_place(place, known.name));
            else if (known.is_required)
                json_place(place, known.name).fail("it is missing.");
    }

    static Json::Value schema() {
        Json::Value schema = schema_of_type("object");
        schema["additionalProperties"] = false;
        for (const auto& known : members_of<Structure>()) {
            schema["properties"][known.name] = known.schema();
            if (known.is_required)
                schema["required"].append(known.name);
        }
        return schema;
    }

private:
    static bool is_known(const std::string& name) {
        for (const auto& known : members_of<Structure>())
            if (known.name == name)
                return true;
        return false;
    }
};

template <class Enumeration>
requires std::is_enum_v<Enumeration>
struct form<Enumeration> {
    static void read(const Json::Value& json, const json_place& place, Enumeration& into) {
        std::string expected;
        for (const auto& [name, value] : names_of<Enumeration>()) {
            if (json == name) {
                into = value;
                return;
            }
            expected += (expected.empty() ? "\"" : " or \"") + std::string(name) + '"';
        }
        place.fail(expected + " is expected.");
    }

    static Json::Value schema() {
        Json::Value schema;
        for (const auto& [name, value] : names_of<Enumeration>())
            schema["enum"].append(name);
        return schema;
    }
};

template <>
struct form<std::string> {
    static void read(const Json::Value& json, const json_place& place, std::string& into) {
        if (!json.isString())
            place.fail("a text is expected.");
        into = json.asString();
    }

    static Json::Value schema() { return schema_of_type("string"); }
};

/// A whole number between two limits.
template <std::uint64_t Least, std::uint64_t Most>
struct number_form {
    static std::uint64_t number(const Json::Value& json, const json_place& place) {
        if (!json.isUInt64() || json.asUInt64() < Least || json.asUInt64() > Most)
            place.fail("a whole number from " + std::to_string(Least) + " to " +
                       std::to_string(Most) + " is expected.");
        return json.asUInt64();
    }

    static Json::Value schema() {
        Json::Value schema = schema_of_type("integer");
        schema["minimum"] = static_cast<Json::UInt64>(Least);
        schema["maximum"] = static_cast<Json::UInt64>(Most);
        return schema;
    }
};

/// A number of things, up to what every program that reads JSON can hold in a double.
template <>
struct form<std::size_t> : number_form<1, std::uint64_t(1) << 53> {
    static void read(const Json::Value& json, const json_place& place, std::size_t& into) {
        into = number(json, place);
    }
};

/// Up to 30 years; clocks overflow much later.
template <>
struct form<std::chrono::milliseconds> : number_form<0, 1'000'000'000'000> {
    static void read(const Json::Value& json, const json_place& place,
                     std::chrono::milliseconds& into) {
        into = std::chrono::milliseconds(number(json, place));
    }
};

template <class Element>
struct form<std::vector<Element>> {
    static void read(const Json::Value& json, const json_place& place, std::vector<Element>& into) {
        if (!json.isArray())
            place.fail("an array is expected.");
        into.clear(); // of its default
        for (Json::ArrayIndex i = 0; i < json.size(); ++i)
            form<Element>::read(json[i], json_place(place, i), into.emplace_back());
    }

    static Json::Value schema() {
        Json::Value schema = schema_of_type("array");
        schema["items"] = form<Element>::schema();
        return schema;
    }
};

/// Left as it is where the document does not have it.
template <class Structure, class Value>
member<Structure> optional(const char* name, Value Structure::*field) {
    return {name, false,
            [field](Structure& into, const Json::Value& json, const json_place& place) {
                form<Value>::read(json, place, into.*field);
            },
            &form<Value>::schema};
}

template <class Structure, class Value>
member<Structure> required(const char* name, Value Structure::*field) {
    auto made = optional(name, field);
    made.is_required = true;
    return made;
}

} // namespace zel::event_routing::nats
