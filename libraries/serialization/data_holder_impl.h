// The holder that everybody gets.
#pragma once

#include "framework/serialization/data.h"
#include "framework/serialization/data_holder.h"

#include <memory>
#include <utility>

namespace zel::serialization {

class DataHolderImpl final : public IDataHolder {
public:
    explicit DataHolderImpl(std::shared_ptr<IData> data) noexcept : data_(std::move(data)) {}
    std::shared_ptr<IData> GetData() const override { return data_; }

private:
    const std::shared_ptr<IData> data_;
};

} // namespace zel::serialization
