// JSON documents as text.
#pragma once

#include <json/value.h>
#include <string>
#include <string_view>

namespace zel::serialization {

/// One line of UTF-8. Bytes of strings that are not UTF-8 become U+FFFD. Throws
/// conversion_error for a document that no reader would take: one that is nested too
/// deeply, holds a number that is none or infinite, or names that are then the same.
std::string json_to_text(const Json::Value& document);

/// One document and nothing else: no comments, no member twice. Throws
/// exceptions::error with what is wrong and where.
Json::Value json_from_text(std::string_view text);

} // namespace zel::serialization
