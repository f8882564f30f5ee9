// Data types by name.
#pragma once

#include "framework/serialization/bin_serialization_module.h"
#include "libraries/serialization/name_registry.h"

namespace zel::serialization {

class BinSerializationModuleImpl final : public IBinSerializationModule {
public:
    int GetLongevity() const override;
    std::shared_ptr<tasklib::keep_registered> RegisterDataType(std::string_view type_name,
                                                               data_factory factory) override;
    std::shared_ptr<IDataHolder> CreateData(std::string_view type_name) override;

private:
    const std::shared_ptr<name_registry<data_factory>> factories_ =
        std::make_shared<name_registry<data_factory>>();
};

} // namespace zel::serialization
