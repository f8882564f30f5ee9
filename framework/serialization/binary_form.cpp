#include "framework/serialization/binary_form.h"

#include "framework/exceptions/exceptions.h"

#include <stdexcept>

namespace zel::serialization {

void nesting::too_deep() {
    throw exceptions::error("zel::serialization: The data are nested too deeply.");
}

void out_blob_stream::flush() {
    append(staging_.data(), staged_);
    staged_ = 0;
}

void out_blob_stream::append(const void* bytes, std::size_t size) {
    if (size > longest_ - blob_.size())
        throw std::length_error("vector too long");
    const auto* const first = static_cast<const std::uint8_t*>(bytes);
    blob_.insert(blob_.end(), first, first + size);
}

void in_blob_stream_base::missing_data() {
    throw std::runtime_error("zel::serialization::in_blob_stream_base::get_impl: Missing data");
}

namespace detail {

void invalid_string_size(std::size_t size) {
    throw exceptions::error("zel::serialization::Deserialize: Invalid string size: " +
                            std::to_string(size));
}

void invalid_container_size(std::size_t count) {
    throw exceptions::error(
        "zel::serialization::DeserializeSeqContainer: Invalid container size: " +
        std::to_string(count));
}

void invalid_flag(unsigned flag) {
    throw exceptions::error("zel::serialization::Deserialize: Invalid flag: " +
                            std::to_string(flag));
}

} // namespace detail

} // namespace zel::serialization
