#include "framework/serialization/json_text.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/binary_streams.h"
#include "framework/serialization/json_values.h"
#include "framework/text/utf8.h"

#include <cmath>
#include <cstdlib>
#include <json/reader.h>
#include <json/writer.h>
#include <memory>
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
