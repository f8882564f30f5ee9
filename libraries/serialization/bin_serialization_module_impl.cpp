#include "libraries/serialization/bin_serialization_module_impl.h"

#include "framework/exceptions/exceptions.h"
#include "framework/serialization/standard_data.h"
#include "libraries/serialization/data_holder_impl.h"

namespace zel::serialization {

int BinSerializationModuleImpl::GetLongevity() const {
    return 200999;
}

std::shared_ptr<tasklib::keep_registered>
BinSerializationModuleImpl::RegisterDataType(std::string_view type_name, data_factory factory) {
    if (!factory)
        throw exceptions::error("RegisterDataType: no factory for '" + std::string(type_name) +
                                "'.");
    const std::array images{platform::image_that_made(factory), platform::image_handle::none};
    return factories_->add(type_name, std::move(factory), images, "factory of data");
}

std::shared_ptr<IDataHolder> BinSerializationModuleImpl::CreateData(std::string_view type_name) {
    std::shared_ptr<IData> data;
    if (type_name == string_data_t::name)
        data = std::make_shared<string_data_t>();
    else if (type_name == json_data_t::name)
        data = std::make_shared<json_data_t>();
    else if (const auto factory = factories_->find(type_name))
        data = (*factory)();
    else
        return nullptr;
    return std::make_shared<DataHolderImpl>(std::move(data));
}

} // namespace zel::serialization
