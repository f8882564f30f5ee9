// A text is read as a document and that as each of the types. What a reader took keeps
// its meaning on the way back and again.
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzzed_types.h"

#include "framework/text/utf8.h"

namespace zel::fuzz {

namespace {

using serialization::json_from_text;
using serialization::json_to_text;

// JsonCpp needs a hundred bytes and more for an element, which takes two bytes of text.
constexpr memory_limit document_limit{256};
// Two bytes of text may be a record, in a vector that has just grown.
constexpr memory_limit value_limit{128};

bool lost_bytes(const std::string& text) {
    return text.find("\xEF\xBF\xBD") != std::string::npos;
}

// Bytes that are no UTF-8 get lost, and names that differ in them only are refused.
template <class T>
void check_value(const T& value) {
    Json::Value document;
    try {
        document = serialization::ToJson(value);
    } catch (const serialization::conversion_error&) {
        return;
    }
    const std::string text = json_to_text(document);
    T again{};
    serialization::FromJson(json_from_text(text), again);
    require(lost_bytes(text) || again == value, "a value keeps its meaning as JSON text");
    require(json_to_text(serialization::ToJson(again)) == text, "a value's JSON text stays");
}

template <class T>
void check_as(const Json::Value& document, std::size_t size) {
    T value{};
    const auto failure =
        failure_of(value_limit.of(size), [&] { serialization::FromJson(document, value); });
    if (failure.empty())
        check_value(value);
}

void check_text(const Json::Value& document, std::size_t size) {
    std::string text;
    if (!failure_of(document_limit.of(size), [&] { text = json_to_text(document); }).empty())
        return;
    require(text::is_utf8(text), "JSON text is UTF-8");
    const Json::Value again = json_from_text(text);
    require(lost_bytes(text) || again == document, "a document keeps its meaning as text");
    // Not the same text: names whose bytes were replaced may be in another order.
    require(json_from_text(json_to_text(again)) == again, "what is UTF-8 stays as it is");
}

} // namespace

} // namespace zel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zel::fuzz;
    Json::Value document;
    const auto failure = failure_of(document_limit.of(size), [&] {
        document = json_from_text({reinterpret_cast<const char*>(data), size});
    });
    if (!failure.empty())
        return 0;
    check_text(document, size);
    for_each_type([&]<class T>(std::type_identity<T>) { check_as<T>(document, size); });
    return 0;
}
