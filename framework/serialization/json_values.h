// Single JSON values, taken and made with the checks that every conversion needs.
#pragma once

#include "framework/serialization/json_place.h"

#include <concepts>
#include <cstdint>
#include <json/value.h>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace zel::serialization::json_values {

/// Each throws conversion_error when the value is of another kind or does not fit.
bool boolean(const Json::Value& json, const json_place& place);
std::string string_of(const Json::Value& json, const json_place& place);
double real_of(const Json::Value& json, double largest, const json_place& place);
std::int64_t signed_of(const Json::Value& json, std::int64_t lowest, std::int64_t highest,
                       const json_place& place);
std::uint64_t unsigned_of(const Json::Value& json, std::uint64_t highest, const json_place& place);

template <std::integral Integer>
Integer integer_of(const Json::Value& json, const json_place& place) {
    using limits = std::numeric_limits<Integer>;
    if constexpr (std::signed_integral<Integer>)
        return static_cast<Integer>(signed_of(json, limits::min(), limits::max(), place));
    else
        return static_cast<Integer>(unsigned_of(json, limits::max(), place));
}

/// The member of that name; null where there is none.
const Json::Value& member(const Json::Value& json, std::string_view name);

/// Makes equal JSON values of equal numbers, whatever their types.
template <std::integral Integer>
Json::Value number(Integer value) {
    if (std::in_range<std::int64_t>(value))
        return Json::Value(static_cast<Json::Int64>(value));
    return Json::Value(static_cast<Json::UInt64>(value));
}

/// Throws conversion_error for what is not a number or infinite.
Json::Value real(double value, const json_place& place);

/// UTF-8 as it is; any other byte becomes U+FFFD.
Json::Value string(const std::string& bytes, const json_place& place);

/// Throws conversion_error for two keys that are the same once they are UTF-8.
[[noreturn]] void refuse_alike(const json_place& place);

/// Throws conversion_error when there is a key that is the same once both are UTF-8.
void add_member(Json::Value& object, const std::string& key, Json::Value value,
                const json_place& place);

/// Throws conversion_error when something in the document is deeper than
/// `deepest_nesting`, so that it is safe to copy, to write and to destroy.
void require_nesting(const Json::Value& json, const json_place& place);

/// Takes a document apart that is too deep to be destroyed as usual; leaves others alone.
void dismantle(Json::Value& json) noexcept;

} // namespace zel::serialization::json_values
