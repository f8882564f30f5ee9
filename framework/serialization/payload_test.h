// Types that the tests of payloads carry, and what failed conversions say.
#pragma once

#include "framework/serialization/payload.h"

#include <gtest/gtest.h>
#include <limits>

namespace zel::serialization {

enum class side : std::int32_t { left = -1, right = 7 };

/// Everything a record may be made of, itself included.
struct sample {
    bool flag = false;
    std::int8_t tiny = 0;
    std::uint64_t large = 0;
    float ratio = 0;
    side where = side::left;
    std::string text;
    std::optional<std::int16_t> maybe;
    std::array<std::uint8_t, 2> two{};
    std::map<std::string, std::uint32_t> sorted;
    std::vector<bool> bits;
    std::unordered_map<std::string, sample> named;
    std::vector<sample> inside;

    bool operator==(const sample&) const = default;
};

template <>
struct enumeration<side> {
    static constexpr std::string_view name = "enum side";
    static constexpr std::pair<side, std::string_view> values[] = {{side::left, "left"},
                                                                   {side::right, "right"}};
};

template <>
struct record<sample> {
    static constexpr std::string_view name = "struct sample";
    static constexpr std::tuple fields{
        field("flag", &sample::flag),     field("tiny", &sample::tiny),
        field("large", &sample::large),   field("ratio", &sample::ratio),
        field("where", &sample::where),   field("text", &sample::text),
        field("maybe", &sample::maybe),   field("two", &sample::two),
        field("sorted", &sample::sorted), field("bits", &sample::bits),
        field("named", &sample::named),   field("inside", &sample::inside)};
};

inline sample filled_sample() {
    sample value{true, -2,     0xFFFFFFFFFFFFFFFE, 1.5F,          side::right, "a\xC3\xA9",
                 -3,   {4, 5}, {{"k", 6}},         {true, false}, {},          {}};
    value.named = {{"n", value}};
    value.inside.resize(2);
    return value;
}

/// Records inside of each other.
inline sample chain_of(unsigned levels) {
    sample whole;
    for (unsigned level = 1; level < levels; ++level) {
        sample outer;
        outer.inside.push_back(std::move(whole));
        whole = std::move(outer);
    }
    return whole;
}

inline const std::string too_deep = "zel::serialization: The data are nested too deeply.";

/// The text, then "at" and the place if there is one; nothing when the call succeeds.
template <class Call>
std::string failure_of(Call&& call) {
    try {
        call();
        return {};
    } catch (const conversion_error& failure) {
        return failure.what() + (failure.place().empty() ? "" : " at " + failure.place());
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

} // namespace zel::serialization
