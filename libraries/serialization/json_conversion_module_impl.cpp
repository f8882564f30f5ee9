#include "libraries/serialization/json_conversion_module_impl.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/json_form.h"
#include "framework/serialization/standard_data.h"
#include "libraries/serialization/data_holder_impl.h"

namespace zel::serialization {

namespace {

template <class Data, class T>
std::shared_ptr<IDataHolder> holder_of(const Json::Value& document) {
    auto data = std::make_shared<Data>();
    FromJson<T>(document, data->MutableValue());
    return std::make_shared<DataHolderImpl>(std::move(data));
}

} // namespace

std::shared_ptr<tasklib::keep_registered>
JsonConversionModuleImpl::RegisterJsonConversion(std::string_view type_name,
                                                 data_from_json from_json, data_to_json to_json) {
    if (!from_json || !to_json)
        throw exceptions::error("RegisterJsonConversion: a function is missing for '" +
                                std::string(type_name) + "'.");
    const std::array images{platform::image_that_made(from_json),
                            platform::image_that_made(to_json)};
    return conversions_->add(type_name, {std::move(from_json), std::move(to_json)}, images,
                             "JSON conversion of");
}

std::shared_ptr<IDataHolder> JsonConversionModuleImpl::CreateFromJson(std::string_view type_name,
                                                                      const Json::Value& document) {
    if (document.isNull())
        return nullptr;
    if (type_name == string_data_t::name)
        return holder_of<string_data_t, std::string>(document);
    if (type_name == json_data_t::name)
        return holder_of<json_data_t, Json::Value>(document);
    const auto known = conversions_->find(type_name);
    return known ? known->from_json(document) : nullptr;
}

Json::Value JsonConversionModuleImpl::ToJson(const std::shared_ptr<const IDataHolder>& holder) {
    const auto data = holder ? holder->GetData() : nullptr;
    if (!data)
        return {};
    if (const auto* const text = dynamic_cast<const string_data_t*>(data.get()))
        return serialization::ToJson(text->Value());
    if (const auto* const json = dynamic_cast<const json_data_t*>(data.get()))
        return serialization::ToJson(json->Value());
    const auto known = conversions_->find(data->GetTypeName());
    return known ? known->to_json(holder) : Json::Value();
}

Json::Value JsonConversionModuleImpl::WrapDocument(std::string_view type_name,
                                                   const Json::Value& value) {
    Json::Value document(Json::objectValue);
    document[wrapped_type_member] = std::string(type_name);
    document[wrapped_data_member] = serialization::ToJson(value);
    return document;
}

bool JsonConversionModuleImpl::UnwrapDocument(const Json::Value& document, std::string& type_name,
                                              Json::Value& value, int) {
    const Json::Value& name = json_values::member(document, wrapped_type_member);
    if (!name.isString() || document.size() != 2 || !document.isMember(wrapped_data_member))
        return false;
    value = serialization::ToJson(document[wrapped_data_member]);
    type_name = name.asString();
    return true;
}

} // namespace zel::serialization
