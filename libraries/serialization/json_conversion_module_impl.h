// JSON by the name of the data type.
#pragma once

#include "framework/serialization/json_conversion_module.h"
#include "libraries/serialization/name_registry.h"

#include <vector>

namespace zel::serialization {

class JsonConversionModuleImpl final : public IJsonConversionModule {
public:
    std::shared_ptr<tasklib::keep_registered> RegisterJsonConversion(std::string_view type_name,
                                                                     data_from_json from_json,
                                                                     data_to_json to_json) override;
    std::shared_ptr<IDataHolder> CreateFromJson(std::string_view type_name,
                                                const Json::Value& document) override;
    Json::Value ToJson(const std::shared_ptr<const IDataHolder>& holder) override;
    Json::Value WrapDocument(std::string_view type_name, const Json::Value& value) override;
    bool UnwrapDocument(const Json::Value& document, std::string& type_name, Json::Value& value,
                        int reserved) override;

private:
    struct conversion {
        data_from_json from_json;
        data_to_json to_json;
    };
    const std::shared_ptr<name_registry<conversion>> conversions_ =
        std::make_shared<name_registry<conversion>>();
};

} // namespace zel::serialization
