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

} // namespace detail

/// The holder's value, where it lies in the holder, or converted from a JSON payload into
/// `scratch`. Null for an empty holder, another type, and a document that carries
/// another type's name. Throws what the conversion throws; `scratch` is untouched then.
template <class T>
const T* GetDataValue(const std::shared_ptr<const IDataHolder>& holder, T& scratch) {
    if (!holder)
        return nullptr;
    const auto data = holder->GetData();
    if (const T* const value = detail::value_of_typed<T>(data.get()))
        return value;
    if (const auto* const json = dynamic_cast<const json_data_t*>(data.get()))
        return detail::value_of_document(json->Value(), scratch);
    return nullptr;
}

/// Puts a new holder of type T in place of the caller's, and gives write access to its
/// value, until the holder is handed on. Null when T is not registered.
template <class T>
T* MakeDataValue(std::shared_ptr<IDataHolder>& holder) {
    holder = get_bin_serialization_module()->CreateData(kept_type_name<T>());
    if (!holder)
        return nullptr;
    const auto data = holder->GetData();
    auto* const typed = dynamic_cast<SerializableData<T>*>(data.get());
    return typed ? &typed->MutableValue() : nullptr;
}

} // namespace zel::serialization
