// Payloads of your own types, in one include.
//
//     const auto data = make_payload(document{"a.txt", 3});       // send
//     document scratch;
//     const document* received = GetDataValue(data, scratch);     // receive
//
// record.h and enumeration.h tell how a type is declared, binary_form.h and json_form.h
// which fields it may have.
#pragma once

#include "framework/serialization/data_type.h"
#include "framework/serialization/data_value.h"
#include "framework/serialization/enumeration.h"
#include "framework/serialization/record.h"
#include "framework/serialization/standard_data.h"

#include <memory>
#include <utility>

namespace zel::serialization {

/// A holder with the value, whose type is registered if need be. Throws exceptions::error
/// when the serialization library cannot be had.
template <class T>
std::shared_ptr<IDataHolder> make_payload(T value) {
    std::shared_ptr<IDataHolder> holder;
    if constexpr (detail::is_payload_type<T>) {
        register_data_type<T>();
        T* const place = MakeDataValue<T>(holder);
        if (!place)
            throw exceptions::error("The data type '" + std::string(kept_type_name<T>()) +
                                    "' is not registered, or by another type of that name.");
        *place = std::move(value);
    } else {
        detail::refuse_payload_type<T>();
    }
    return holder;
}

/// A holder with a JSON document. Throws conversion_error for one that is nested too
/// deeply.
inline std::shared_ptr<IDataHolder> make_json_payload(Json::Value document) {
    json_values::require_nesting(document, {});
    auto holder = get_bin_serialization_module()->CreateData(json_data_t::name);
    dynamic_cast<json_data_t&>(*holder->GetData()).MutableValue() = std::move(document);
    return holder;
}

} // namespace zel::serialization
