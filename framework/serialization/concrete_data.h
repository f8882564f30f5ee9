// A data object with a value of type T, kept as value, as bytes, or as both.
//
// Each form is made of the other when somebody asks for it, at most once, on the
// asking thread. Any number of threads may read one object; only its maker, before
// anybody else sees it, may set its content.
#pragma once

#include "framework/exceptions/exceptions.h"
#include "framework/module_interface/standard_type_names.h"
#include "framework/serialization/data.h"

#include <platform/critical_section.h>

#include <atomic>
#include <utility>
#include <vector>

namespace zel::serialization {

using byte_vector = std::vector<std::uint8_t>;

template <class T>
class ConcreteData : public IData {
public:
    std::string GetTypeName() const override { return zel::type_name<T>(); }
    bool IsSerializable() const override { return true; }

    void GetSerializedData(const std::uint8_t** data, std::size_t* size) const override {
        if ((state() & bytes_valid) == 0)
            make_bytes();
        static constexpr std::uint8_t somewhere = 0;
        *data = bytes_.empty() ? &somewhere : bytes_.data();
        *size = bytes_.size();
    }

    void SetSerializedData(const std::uint8_t* data, std::size_t size) override {
        bytes_ = byte_vector(data, data + size);
        state_.store(bytes_valid, std::memory_order_release);
    }

    /// Throws exceptions::error for an object without content, and what reading the
    /// bytes threw; the object is then as it was before.
    const T& Value() const {
        if ((state() & value_valid) == 0)
            make_value();
        return value_;
    }

    /// Write access for the maker of the object. Bytes there are become the value
    /// first; from now on they are made of the value again.
    T& MutableValue() {
        if (state() == bytes_valid)
            make_value();
        state_.store(value_valid, std::memory_order_release);
        return value_;
    }

    virtual void Serialize(const T& value, byte_vector& out) const = 0;
    virtual void Deserialize(T& out, const byte_vector& bytes) const = 0;

protected:
    /// The value, whichever form is valid. For the destructor of a derived class whose values
    /// must not be destroyed in the ordinary way.
    T& discarded_value() noexcept { return value_; }

private:
    static constexpr std::uint32_t value_valid = 1;
    static constexpr std::uint32_t bytes_valid = 2;

    // Acquire: who sees a form as valid sees the form.
    std::uint32_t state() const noexcept { return state_.load(std::memory_order_acquire); }

    [[gnu::noinline]] void make_value() const {
        if (state() == 0)
            throw exceptions::error(failure_text("Value: Invalid data."));
        platform::scoped_lock inside(lock_);
        if (state() & value_valid)
            return;
        T made{};
        Deserialize(made, bytes_);
        value_ = std::move(made);
        state_.fetch_or(value_valid, std::memory_order_release);
    }

    [[gnu::noinline]] void make_bytes() const {
        if (state() == 0)
            throw exceptions::error(failure_text("GetSerializedData: Invalid data."));
        if (!IsSerializable())
            throw exceptions::error(failure_text("GetSerializedData: Not a serializeable data."));
        platform::scoped_lock inside(lock_);
        if (state() & bytes_valid)
            return;
        byte_vector made;
        Serialize(value_, made);
        bytes_ = std::move(made);
        state_.fetch_or(bytes_valid, std::memory_order_release);
    }

    static std::string failure_text(const char* what) {
        return template_type_name("zel::serialization::ConcreteData", {zel::type_name<T>()}) +
               "::" + what;
    }

    // Held while one form is made of the other. A form itself needs no lock: it is
    // written once, before its bit is set, and then only read.
    mutable platform::critical_section lock_;
    mutable std::atomic<std::uint32_t> state_{0};
    mutable T value_{};
    mutable byte_vector bytes_;
};

} // namespace zel::serialization
