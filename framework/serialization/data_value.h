// Typed access to payloads.
//
//     document scratch;
//     if (const document* received = GetDataValue(data, scratch))
//         open(received->path);
#pragma once

#include "framework/module_interface/kept_type_name.h"
#include "framework/serialization/json_form.h"
#include "framework/serialization/serialization_modules.h"
#include "framework/serialization/standard_data.h"

#include <memory>
#include <string>
#include <utility>

namespace zel::serialization {

namespace detail {

template <class T>
const T* value_of_document(const Json::Value& document, T& scratch) {
    std::string type_name;
    Json::Value inner;
    const bool wrapped =
        get_json_conversion_module()->UnwrapDocument(document, type_name, inner, 0);
    if (wrapped && type_name != kept_type_name<T>())
        return nullptr;
    T value{};
    const json_place whole;
    if (wrapped)
        FromJson(inner, value, json_place(whole, wrapped_data_member));
    else
        FromJson(document, value, whole);
    scratch = std::move(value);
    return &scratch;
}

/// Null for a holder of another type.
template <class T>
const T* value_of_typed(const IData* data) {
    const auto* const typed = dynamic_cast<const SerializableData<T>*>(data);
    return typed ? &typed->Value() : nullptr;
}

/// Whether the document carries no type's name, or that of T.
template <class T>
bool may_be_document_of(const Json::Value& document) {
    std::string type_name;
    Json::Value inner;
    return !get_json_conversion_module()->UnwrapDocument(document, type_name, inner, 0) ||
           type_name == kept_type_name<T>();
}

} // namespace detail

/// Whether GetDataValue takes the holder's type. Converts nothing.
template <class T>
bool is_data_value_type(const std::shared_ptr<const IDataHolder>& holder) {
    const auto data = holder ? holder->GetData() : nullptr;
    if (dynamic_cast<const SerializableData<T>*>(data.get()))
        return true;
    const auto* const json = dynamic_cast<const json_data_t*>(data.get());
    return json && detail::may_be_document_of<T>(json->Value());
}

/// The holder's value, where it lies in the holder, or converted from a JSON payload into
/// `scratch`. Null for an empty holder, another type, and a document that carries
/// another type's name. Throws what the conversion throws; `scratch` is untouched then.
template <class T>
const T* GetDataValue(const std::shared_ptr<const IDataHolder>& holder, T& scratch) {
    if constexpr (detail::is_payload_type<T>) {
        if (!holder)
            return nullptr;
        const auto data = holder->GetData();
        if (const T* const value = detail::value_of_typed<T>(data.get()))
            return value;
        if (const auto* const json = dynamic_cast<const json_data_t*>(data.get()))
            return detail::value_of_document(json->Value(), scratch);
    } else {
        detail::refuse_payload_type<T>();
    }
    return nullptr;
}

/// Puts a new holder of type T in place of the caller's, and gives write access to its
/// value, until the holder is handed on. Null when T is not registered.
template <class T>
T* MakeDataValue(std::shared_ptr<IDataHolder>& holder) {
    if constexpr (detail::is_payload_type<T>) {
        holder = get_bin_serialization_module()->CreateData(kept_type_name<T>());
        if (!holder)
            return nullptr;
        const auto data = holder->GetData();
        if (auto* const typed = dynamic_cast<SerializableData<T>*>(data.get()))
            return &typed->MutableValue();
    } else {
        detail::refuse_payload_type<T>();
    }
    return nullptr;
}

} // namespace zel::serialization
