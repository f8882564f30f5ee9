// Conversion between data types and JSON by name, for those who do not have the type.
// Implemented by the library `serialization`.
//
// A document can carry the name of its data type. It is then an object of exactly two
// members:
//
//     {"zel.data_type": "struct document", "zel.data": {"path": "a.txt", "pages": 3}}
//
// Any other document, also an object with more members or a name that is no string, is
// an ordinary document.
#pragma once

#include "framework/serialization/data_holder.h"

#include <tasklib/keep_registered.h>

#include <functional>
#include <json/value.h>
#include <memory>
#include <string>
#include <string_view>

namespace zel::serialization {

/// The members of a document that carries a type name.
inline constexpr const char* wrapped_type_member = "zel.data_type";
inline constexpr const char* wrapped_data_member = "zel.data";

/// A holder of the document's value; null for JSON null. Throws when the document does
/// not fit the type.
using data_from_json = std::function<std::shared_ptr<IDataHolder>(const Json::Value& document)>;
/// JSON null for a holder of another type.
using data_to_json = std::function<Json::Value(const std::shared_ptr<const IDataHolder>& holder)>;

class ZEL_EXPORT IJsonConversionModule : public ModuleInterfaceBase {
public:
    static constexpr std::int32_t interface_version = 3;
    virtual std::int32_t GetInterfaceVersion() const { return interface_version; }

    /// Until the result is dropped, the operations below use the functions. Of several
    /// registrations for one name the first is used. Throws exceptions::error for an empty
    /// function.
    [[nodiscard]] virtual std::shared_ptr<tasklib::keep_registered>
    RegisterJsonConversion(std::string_view type_name, data_from_json from_json,
                           data_to_json to_json) = 0;

    /// A holder of the named type; null for JSON null and for a name that nobody
    /// registered. "string" and "json" are always known.
    virtual std::shared_ptr<IDataHolder> CreateFromJson(std::string_view type_name,
                                                        const Json::Value& document) = 0;

    /// The holder's value, not wrapped; null for an empty holder and for a type that nobody
    /// registered.
    virtual Json::Value ToJson(const std::shared_ptr<const IDataHolder>& holder) = 0;

    /// The value with its type's name around it.
    virtual Json::Value WrapDocument(std::string_view type_name, const Json::Value& value) = 0;

    /// Whether the document carries a type name; if so, gives the name and the value
    /// inside. `reserved` is 0.
    virtual bool UnwrapDocument(const Json::Value& document, std::string& type_name,
                                Json::Value& value, int reserved) = 0;
};

} // namespace zel::serialization

template <>
struct zel::declared_type_name<zel::serialization::IJsonConversionModule> {
    static std::string text() { return "class zel::serialization::IJsonConversionModule"; }
};
