// Makes a type known to the whole process under its name.
#pragma once

#include "framework/serialization/data_value.h"

#include <platform/counted_object.h>

#include <atomic>
#include <memory>

namespace zel::serialization {

template <class T>
struct DataToJsonLambda {
    Json::Value operator()(const std::shared_ptr<const IDataHolder>& holder) const {
        const auto data = holder ? holder->GetData() : nullptr;
        const T* const value = detail::value_of_typed<T>(data.get());
        return value ? ToJson(*value) : Json::Value();
    }
};

template <class T>
struct DataFromJsonLambda {
    std::shared_ptr<IDataHolder> operator()(const Json::Value& document) const {
        if (document.isNull())
            return nullptr;
        std::shared_ptr<IDataHolder> holder;
        T* const value = MakeDataValue<T>(holder);
        if (!value)
            return nullptr;
        FromJson(document, *value);
        return holder;
    }
};

template <class T, class Data, int Version>
struct serialization_traits_impl;

template <class T>
struct serialization_traits_impl<T, SerializableData<T>, 1> {
    static void register_type(tasklib::registrations& cookies, IBinSerializationModule* module) {
        cookies.add(module->RegisterDataType(kept_type_name<T>(), [] {
            return platform::make_counted<SerializableData<T>>("payload", kept_type_name<T>());
        }));
    }

    static void register_json(tasklib::registrations& cookies, IJsonConversionModule* module) {
        cookies.add(module->RegisterJsonConversion(kept_type_name<T>(), DataFromJsonLambda<T>(),
                                                   DataToJsonLambda<T>()));
    }
};

namespace detail {

// Hidden, so that each library has its own however its users compile.
template <class T>
[[gnu::visibility("hidden")]] inline constinit std::atomic<bool> is_registered{false};

} // namespace detail

/// Registers T with both serialization modules, until this library ends. Once is enough;
/// further calls cost a load. Throws when the serialization library cannot be had.
template <class T>
void register_data_type() {
    static_assert(
        requires { sizeof(binary_form<T>) + sizeof(json_form<T>); },
        "a payload type is declared as record.h or enumeration.h show");
    // Acquire and release: who finds it set finds the type registered. Two first callers
    // may both register, which does no harm.
    if (detail::is_registered<T>.load(std::memory_order_acquire))
        return;
    using traits = serialization_traits_impl<T, SerializableData<T>, 1>;
    const auto bin_serialization = get_bin_serialization_module();
    const auto json_conversion = get_json_conversion_module();
    use_type_registrations([&](auto& cookies) {
        traits::register_type(cookies, bin_serialization.get());
        traits::register_json(cookies, json_conversion.get());
    });
    detail::is_registered<T>.store(true, std::memory_order_release);
}

} // namespace zel::serialization
