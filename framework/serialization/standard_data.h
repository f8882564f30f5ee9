// The two data types that the serialization library knows from the start.
//
// Everything is inline and nothing is exported: any library recognises them by
// dynamic_cast without being linked to the one that made the object.
#pragma once

#include "framework/serialization/concrete_data.h"
#include "framework/serialization/json_text.h"
#include "framework/serialization/json_values.h"
#include "framework/serialization/serializable_data.h"

#include <json/value.h>
#include <stdexcept>
#include <string>

template <>
struct zel::declared_type_name<Json::Value> {
    static std::string text() { return "class Json::Value"; }
};

namespace zel::serialization {

/// A byte string, under the name "string".
// Not final: a cast to a final class may compare tables that each library has its own of.
class string_data_t : public SerializableData<std::string> {
public:
    static constexpr const char* name = "string";
    std::string GetTypeName() const override { return name; }
};

/// A JSON document, under the name "json". Its binary form is its text.
class json_data_t : public ConcreteData<Json::Value> {
public:
    static constexpr const char* name = "json";

    // JsonCpp destroys a document level by level, which a deep one would not survive.
    ~json_data_t() override { json_values::dismantle(this->discarded_value()); }

    std::string GetTypeName() const override { return name; }

    void Serialize(const Json::Value& value, byte_vector& out) const override {
        const std::string text = json_to_text(value);
        if (text.size() > longest_blob)
            throw std::length_error("vector too long");
        out.assign(text.begin(), text.end());
    }

    void Deserialize(Json::Value& out, const byte_vector& bytes) const override {
        out = json_from_text({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
};

} // namespace zel::serialization
