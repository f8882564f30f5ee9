#include "framework/serialization/json_values.h"

#include "framework/serialization/binary_streams.h"
#include "framework/text/utf8.h"

#include <cmath>
#include <utility>
#include <vector>

namespace zel::serialization {

namespace {

constexpr const char* overflow = "zel::serialization::FromJson: Numeric value overflow.";

} // namespace

void json_place::require_depth() const {
    if (depth_ > deepest_nesting)
        fail("zel::serialization: The data are nested too deeply.");
}

void json_place::fail(std::string message) const {
    throw conversion_error(std::move(message), text());
}

std::string json_place::text() const {
    std::vector<const json_place*> steps;
    for (const auto* step = this; step->outer_; step = step->outer_)
        steps.push_back(step);
    std::string text;
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        if ((*step)->index_ != no_index)
            text += '[' + std::to_string((*step)->index_) + ']';
        else
            text.append(text.empty() ? "" : ".").append((*step)->member_);
    }
    return text;
}

namespace json_values {

namespace {

[[noreturn]] void not_numeric(const json_place& place) {
    place.fail("zel::serialization::FromJson: Numeric value expected.");
}

// Whole part of a real number that lies between two powers of two. The ends themselves are
// refused: JsonCpp makes a real of an integer that does not fit into 64 bits, so the lower
// end could stand for a number beyond it. NaN is refused, too.
double whole_part(const Json::Value& json, double lower_end, double end, const json_place& place) {
    const double whole = std::trunc(json.asDouble());
    if (!(whole > lower_end && whole < end))
        place.fail(overflow);
    return whole;
}

bool is_container(const Json::Value& json) {
    return json.isArray() || json.isObject();
}

bool is_deeper(const Json::Value& json, unsigned levels) {
    if (!is_container(json))
        return false;
    if (levels == 0)
        return true;
    for (const auto& element : json)
        if (is_deeper(element, levels - 1))
            return true;
    return false;
}

} // namespace

bool boolean(const Json::Value& json, const json_place& place) {
    if (!json.isBool())
        place.fail("zel::serialization::FromJson: Boolean value expected.");
    return json.asBool();
}

std::string string_of(const Json::Value& json, const json_place& place) {
    if (!json.isString())
        place.fail("zel::serialization::FromJson: String value expected.");
    return json.asString();
}

double real_of(const Json::Value& json, double largest, const json_place& place) {
    if (!json.isNumeric())
        not_numeric(place);
    const double value = json.asDouble();
    if (!(std::abs(value) <= largest))
        place.fail(overflow);
    return value;
}

std::int64_t signed_of(const Json::Value& json, std::int64_t lowest, std::int64_t highest,
                       const json_place& place) {
    constexpr double end = 9223372036854775808.0; // 2 to the 63rd
    std::int64_t value = 0;
    switch (json.type()) {
    case Json::intValue:
        value = json.asInt64();
        break;
    case Json::uintValue:
        if (!json.isInt64())
            place.fail(overflow);
        value = json.asInt64();
        break;
    case Json::realValue:
        value = static_cast<std::int64_t>(whole_part(json, -end, end, place));
        break;
    default:
        not_numeric(place);
    }
    if (value < lowest || value > highest)
        place.fail(overflow);
    return value;
}

std::uint64_t unsigned_of(const Json::Value& json, std::uint64_t highest, const json_place& place) {
    constexpr double end = 18446744073709551616.0; // 2 to the 64th
    std::uint64_t value = 0;
    switch (json.type()) {
    case Json::intValue:
        if (json.asInt64() < 0)
            place.fail(overflow);
        [[fallthrough]];
    case Json::uintValue:
        value = json.asUInt64();
        break;
    case Json::realValue:
        value = static_cast<std::uint64_t>(whole_part(json, -1, end, place));
        break;
    default:
        not_numeric(place);
    }
    if (value > highest)
        place.fail(overflow);
    return value;
}

const Json::Value& member(const Json::Value& json, std::string_view name) {
    const auto* const found =
        json.isObject() ? json.find(name.data(), name.data() + name.size()) : nullptr;
    return found ? *found : Json::Value::nullSingleton();
}

Json::Value real(double value, const json_place& place) {
    if (!std::isfinite(value))
        place.fail("zel::serialization::ToJson: Numeric value overflow.");
    return value;
}

Json::Value string(const std::string& bytes, const json_place& place) {
    // What JsonCpp can hold, a length before the bytes included.
    if (bytes.size() > longest_blob - sizeof(unsigned) - 1)
        place.fail("zel::serialization::ToJson: The string is too long.");
    if (text::is_utf8(bytes))
        return bytes;
    return text::as_utf8(bytes);
}

void refuse_alike(const json_place& place) {
    place.fail("zel::serialization::ToJson: Two keys look the same in JSON.");
}

void add_member(Json::Value& object, const std::string& key, Json::Value value,
                const json_place& place) {
    const std::string name = text::as_utf8(key);
    if (object.isMember(name))
        refuse_alike(place);
    object[name] = std::move(value);
}

void require_nesting(const Json::Value& json, const json_place& place) {
    if (is_deeper(json, deepest_nesting))
        place.fail("zel::serialization: The data are nested too deeply.");
}

void dismantle(Json::Value& json) noexcept {
    if (!is_deeper(json, deepest_nesting))
        return;
    std::vector<Json::Value> left;
    left.push_back(std::exchange(json, Json::Value()));
    while (!left.empty()) {
        Json::Value taken = std::move(left.back());
        left.pop_back();
        for (auto& element : taken)
            if (is_container(element))
                left.push_back(std::exchange(element, Json::Value()));
    }
}

} // namespace json_values

} // namespace zel::serialization
