// How an enumeration of your own gets names: a short declaration next to it.
//
//     enum class paper : std::int32_t { a4 = 0, letter = 1 };
//
//     template <>
//     struct zel::serialization::enumeration<paper> {
//         static constexpr std::string_view name = "enum paper";
//         static constexpr std::pair<paper, std::string_view> values[] = {
//             {paper::a4, "a4"}, {paper::letter, "letter"}};
//     };
//
// In JSON a value is {"value": 1, "name": "letter"}, without the name if it has none. It
// is read from that, where the value wins over the name, from a number, named or not, and
// from a name. The binary form is the underlying integer.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/lifetime/basic_singleton.h"
#include "framework/module_interface/type_name.h"
#include "framework/serialization/json_place.h"
#include "framework/serialization/json_values.h"

#include <concepts>
#include <iterator>
#include <json/value.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace zel::serialization {

/// To be specialised for every enumeration.
template <class T>
struct enumeration;

template <class T>
concept described_enumeration = std::is_enum_v<T> && requires {
    { enumeration<T>::name } -> std::convertible_to<std::string_view>;
    enumeration<T>::values;
};

namespace detail {

template <described_enumeration Enumeration>
inline constexpr bool has_different_values = [] {
    const auto& all = enumeration<Enumeration>::values;
    for (auto one = std::begin(all); one != std::end(all); ++one)
        for (auto other = std::begin(all); other != one; ++other)
            if (one->first == other->first || one->second == other->second)
                return false;
    return true;
}();

} // namespace detail

namespace impl {

/// Names of an enumeration's values and values of its names.
template <class Enumeration>
class EnumConversionMaps {
public:
    EnumConversionMaps() {
        for (const auto& [value, name] : enumeration<Enumeration>::values)
            Add(value, std::string(name));
    }

    /// Throws exceptions::fatal for a value or a name that is there already.
    void Add(Enumeration value, const std::string& name) {
        if (names_.contains(value))
            throw exceptions::fatal("Duplcate values are not supported");
        if (values_.contains(name))
            throw exceptions::fatal("Duplcate names are not supported");
        names_.emplace(value, name);
        values_.emplace(name, value);
    }

    Json::Value EnumToJson(Enumeration value) const {
        Json::Value json(Json::objectValue);
        json["value"] = json_values::number(static_cast<number>(value));
        if (const auto named = names_.find(value); named != names_.end())
            json["name"] = named->second;
        return json;
    }

    Enumeration EnumFromJson(const Json::Value& json, const json_place& place) const {
        if (json.isNumeric())
            return FromNumber(json, place);
        if (json.isString())
            return FromString(json, place);
        if (!json.isObject())
            fail("EnumFromJson: Object value expected.", place);
        if (json.isMember("value"))
            return FromNumber(json["value"], json_place(place, "value"));
        if (json.isMember("name"))
            return FromString(json["name"], json_place(place, "name"));
        fail("EnumFromJson: Neither 'value' nor 'name' is member of JSON value", place);
    }

    Enumeration FromNumber(const Json::Value& json, const json_place& place) const {
        if (!json.isNumeric())
            fail("FromNumber: numeric value expected.", place);
        return static_cast<Enumeration>(json_values::integer_of<number>(json, place));
    }

    Enumeration FromString(const Json::Value& json, const json_place& place) const {
        if (!json.isString())
            fail("FromString: string value expected.", place);
        const auto named = values_.find(json.asString());
        if (named == values_.end())
            fail("FromString: unknown enum name.", place);
        return named->second;
    }

private:
    using number = std::underlying_type_t<Enumeration>;

    [[noreturn]] static void fail(const char* what, const json_place& place) {
        place.fail(template_type_name("zel::serialization::impl::EnumConversionMaps",
                                      {type_name<Enumeration>()}) +
                   "::" + what);
    }

    std::map<Enumeration, std::string> names_;
    std::map<std::string, Enumeration> values_;
};

/// Owned by whoever is converting, too: a conversion holds no lock of the library, and one
/// that is under way when the library ends keeps what it needs.
template <class Enumeration>
struct shared_conversion_maps {
    const std::shared_ptr<const EnumConversionMaps<Enumeration>> maps =
        std::make_shared<const EnumConversionMaps<Enumeration>>();
};

/// One per library, made when first used. Hidden, so that it is one per library however
/// its users compile.
template <class Enumeration>
[[gnu::visibility("hidden")]] inline constinit lifetime::basic_singleton<
    shared_conversion_maps<Enumeration>, lifetime::const_longevity_traits<10>>
    enum_conversion_maps;

/// Throws what making them threw, and object_already_destroyed after the library's end.
template <class Enumeration>
std::shared_ptr<const EnumConversionMaps<Enumeration>> conversion_maps() {
    return enum_conversion_maps<Enumeration>.read([](const auto& shared) { return shared.maps; });
}

} // namespace impl

} // namespace zel::serialization

namespace zel {

template <serialization::described_enumeration Enumeration>
struct declared_type_name<Enumeration> {
    static std::string text() { return std::string(serialization::enumeration<Enumeration>::name); }
};

} // namespace zel
