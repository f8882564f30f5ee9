#include "framework/serialization/json_text.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/binary_streams.h"
#include "framework/serialization/json_values.h"

#include <cmath>
#include <cstdlib>
#include <json/reader.h>
#include <json/writer.h>
#include <memory>
#include <set>

namespace zel::serialization {

namespace {

// Length of the well-formed character that the bytes begin with; 0 if there is none.
std::size_t character_length(std::string_view bytes) noexcept {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || bytes.size() < length)
        return 0;
    // Not the longer forms of shorter characters, surrogates, or beyond U+10FFFF.
    const unsigned char lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned char highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (byte(1) < lowest || byte(1) > highest)
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    return length;
}

std::size_t well_formed_length(std::string_view bytes) noexcept {
    std::size_t length = 0;
    while (length < bytes.size()) {
        const std::size_t character = character_length(bytes.substr(length));
        if (character == 0)
            break;
        length += character;
    }
    return length;
}

void require_writable(const Json::Value& json, const json_place& place);

void require_writable_members(const Json::Value& object, const json_place& place) {
    std::set<std::string> replaced; // names that will be other ones
    for (auto member = object.begin(); member != object.end(); ++member) {
        const std::string name = member.name();
        const json_place inside(place, name);
        if (!is_utf8(name)) {
            std::string replacement = as_utf8(name);
            if (object.isMember(replacement) || !replaced.insert(std::move(replacement)).second)
                json_values::refuse_alike(inside);
        }
        require_writable(*member, inside);
    }
}

void require_writable(const Json::Value& json, const json_place& place) {
    if (json.isDouble())
        json_values::real(json.asDouble(), place);
    else if (json.isArray())
        for (Json::ArrayIndex i = 0; i < json.size(); ++i)
            require_writable(json[i], json_place(place, i));
    else if (json.isObject())
        require_writable_members(json, place);
}

std::unique_ptr<Json::CharReader> strict_reader() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    builder["stackLimit"] = deepest_nesting + 1; // JsonCpp counts the innermost value, too
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

// JsonCpp calls a number beyond the largest real "not a number".
bool names_huge_number(const std::string& failure) {
    const auto end = failure.find("' is not a number.");
    if (end == std::string::npos)
        return false;
    const auto begin = failure.rfind('\'', end - 1);
    return begin != std::string::npos &&
           std::isinf(std::strtod(failure.c_str() + begin + 1, nullptr));
}

} // namespace

bool is_utf8(std::string_view bytes) noexcept {
    return well_formed_length(bytes) == bytes.size();
}

std::string as_utf8(std::string_view bytes) {
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string text;
    while (!bytes.empty()) {
        const std::size_t length = well_formed_length(bytes);
        text.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
        if (bytes.empty())
            break;
        text.append(replacement);
        bytes.remove_prefix(1);
    }
    return text;
}

std::string json_to_text(const Json::Value& document) {
    json_values::require_nesting(document, {});
    require_writable(document, {});
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    std::string text = Json::writeString(builder, document);
    return is_utf8(text) ? text : as_utf8(text);
}

Json::Value json_from_text(std::string_view text) {
    Json::Value document;
    std::string failure;
    try {
        if (strict_reader()->parse(text.data(), text.data() + text.size(), &document, &failure)) {
            json_values::require_nesting(document, {});
            return document;
        }
    } catch (const Json::Exception& e) {
        failure = e.what(); // nested too deeply
    }
    if (names_huge_number(failure))
        throw exceptions::error("zel::serialization::FromJson: Numeric value overflow.");
    while (!failure.empty() && failure.back() == '\n')
        failure.pop_back();
    throw exceptions::error("zel::serialization: Not a JSON document: " + failure);
}

} // namespace zel::serialization
