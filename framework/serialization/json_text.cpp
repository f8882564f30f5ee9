#include "framework/serialization/json_text.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/binary_streams.h"
#include "framework/serialization/json_values.h"
#include "framework/text/utf8.h"

#include <algorithm>
#include <charconv>
#include <json/reader.h>
#include <json/writer.h>
#include <memory>
#include <optional>
#include <set>

namespace zel::serialization {

namespace {

void require_writable(const Json::Value& json, const json_place& place);

void require_writable_members(const Json::Value& object, const json_place& place) {
    std::set<std::string> replaced; // names that will be other ones
    for (auto member = object.begin(); member != object.end(); ++member) {
        const std::string name = member.name();
        const json_place inside(place, name);
        if (!text::is_utf8(name)) {
            std::string replacement = text::as_utf8(name);
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

// What is wrong with the text; nothing when the document has been read.
std::optional<std::string> failure_of_reading(std::string_view text, Json::Value& document) {
    std::string failure;
    try {
        if (strict_reader()->parse(text.data(), text.data() + text.size(), &document, &failure))
            return std::nullopt;
    } catch (const Json::Exception& e) {
        failure = e.what(); // nested too deeply
    }
    while (!failure.empty() && failure.back() == '\n')
        failure.pop_back();
    return failure;
}

const char* end_of_string(const char* quote, const char* end) {
    for (const char* next = quote + 1; next < end; ++next)
        if (*next == '\\')
            ++next;
        else if (*next == '"')
            return next + 1;
    return end;
}

// The same with 0 in place of every number that no double holds.
std::string with_small_numbers(std::string_view text) {
    std::string result;
    const char* const end = text.data() + text.size();
    for (const char* next = text.data(); next < end;) {
        const char* const begin = next;
        double number = 0;
        if (*begin == '"') {
            next = end_of_string(begin, end);
        } else if (*begin == '-' || (*begin >= '0' && *begin <= '9')) {
            const auto read = std::from_chars(begin, end, number);
            next = std::max(read.ptr, begin + 1);
            if (read.ec == std::errc::result_out_of_range) {
                result += '0';
                continue;
            }
        } else {
            ++next;
        }
        result.append(begin, next);
    }
    return result;
}

// JsonCpp takes a number beyond the largest real for no number at all.
bool has_nothing_wrong_but_huge_numbers(std::string_view text) {
    Json::Value document;
    const std::string small = with_small_numbers(text);
    return small != text && !failure_of_reading(small, document);
}

} // namespace

std::string json_to_text(const Json::Value& document) {
    json_values::require_nesting(document, {});
    require_writable(document, {});
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    std::string text = Json::writeString(builder, document);
    return text::is_utf8(text) ? text : text::as_utf8(text);
}

Json::Value json_from_text(std::string_view text) {
    Json::Value document;
    const auto failure = failure_of_reading(text, document);
    if (!failure) {
        json_values::require_nesting(document, {});
        return document;
    }
    if (has_nothing_wrong_but_huge_numbers(text))
        throw exceptions::error("zel::serialization::FromJson: Numeric value overflow.");
    throw exceptions::error("zel::serialization: Not a JSON document: " + *failure);
}

} // namespace zel::serialization
