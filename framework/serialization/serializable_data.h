// A data object whose bytes are the binary form of its type.
#pragma once

#include "framework/serialization/binary_form.h"
#include "framework/serialization/concrete_data.h"

namespace zel::serialization {

template <class T>
class SerializableData : public ConcreteData<T> {
public:
    void Serialize(const T& value, byte_vector& out) const override {
        out_blob_stream stream;
        serialization::Serialize(stream, value);
        out = stream.take();
    }

    /// What follows the value is not looked at.
    void Deserialize(T& out, const byte_vector& bytes) const override {
        in_blob_ref_stream stream(bytes);
        serialization::Deserialize(stream, out);
    }
};

} // namespace zel::serialization
