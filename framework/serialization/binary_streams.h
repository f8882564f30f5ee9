// Where binary forms are written to and read from.
//
// A stream belongs to one thread. What is read was made by others: a reading stream
// never looks beyond its bytes and never goes deeper than `deepest_nesting`.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace zel::serialization {

/// Containers inside of containers, in bytes and in JSON. Deeper data would be a
/// danger to the stack of whoever reads it, so they can be neither read nor written.
inline constexpr unsigned deepest_nesting = 512;

/// Byte strings and vectors are never longer.
inline constexpr std::size_t longest_blob = 0x7fffffff;

/// How deep a stream is in containers.
class nesting {
public:
    /// One level deeper, for a scope. Throws exceptions::error beyond the deepest.
    class level {
    public:
        explicit level(nesting& levels) : levels_(levels) {
            if (levels_.depth_ == deepest_nesting)
                too_deep();
            ++levels_.depth_;
        }
        ~level() { --levels_.depth_; }
        level(const level&) = delete;
        level& operator=(const level&) = delete;

    private:
        nesting& levels_;
    };

    unsigned depth() const noexcept { return depth_; }

private:
    [[noreturn]] static void too_deep();

    unsigned depth_ = 0;
};

class out_stream_ifc {
public:
    virtual ~out_stream_ifc() = default;
    virtual void write(const void* bytes, std::size_t size) = 0;
};

/// Gathers small writes, so that the vector grows by larger pieces.
class out_blob_stream final : public out_stream_ifc, public nesting {
public:
    explicit out_blob_stream(std::size_t longest = longest_blob) noexcept : longest_(longest) {}

    /// Throws std::length_error beyond the longest blob.
    void write(const void* bytes, std::size_t size) override {
        if (size > staging_.size() - staged_) {
            flush();
            if (size > staging_.size())
                return append(bytes, size);
        }
        if (size != 0) // then the address need not be one
            std::memcpy(staging_.data() + staged_, bytes, size);
        staged_ += size;
    }

    /// Everything that was written; the stream is empty afterwards.
    std::vector<std::uint8_t> take() {
        flush();
        return std::move(blob_);
    }

private:
    void flush();
    void append(const void* bytes, std::size_t size);

    std::size_t longest_;
    std::size_t staged_ = 0;
    std::vector<std::uint8_t> blob_;
    std::array<std::uint8_t, 256> staging_;
};

class in_stream_ifc {
public:
    virtual ~in_stream_ifc() = default;
    /// Throws std::runtime_error when less remains.
    virtual void read(void* destination, std::size_t size) = 0;
    virtual std::size_t remaining() const = 0;
    virtual std::size_t total_size() const = 0;
};

class in_blob_stream_base : public in_stream_ifc, public nesting {
public:
    void read(void* destination, std::size_t size) final {
        const std::uint8_t* const bytes = get_impl(size);
        if (size != 0)
            std::memcpy(destination, bytes, size);
    }
    std::size_t remaining() const final { return static_cast<std::size_t>(end_ - position_); }
    std::size_t total_size() const final { return total_size_; }

    /// False when more elements than there are bytes have taken none: a claim that costs
    /// its maker nothing, and the reader memory.
    bool affords_empty_element() noexcept { return ++empty_elements_ <= total_size_; }

    /// The next bytes where they lie; they are passed over.
    const std::uint8_t* get(std::size_t size) { return get_impl(size); }

protected:
    in_blob_stream_base(const std::uint8_t* data, std::size_t size) noexcept
        : position_(data), end_(data + size), total_size_(size) {}

private:
    const std::uint8_t* get_impl(std::size_t size) {
        if (size > static_cast<std::size_t>(end_ - position_))
            missing_data();
        const std::uint8_t* const bytes = position_;
        position_ += size;
        return bytes;
    }
    [[noreturn]] static void missing_data();

    const std::uint8_t* position_;
    const std::uint8_t* end_;
    std::size_t total_size_;
    std::size_t empty_elements_ = 0;
};

/// Reads a vector in place; the vector has to stay as it is meanwhile.
class in_blob_ref_stream final : public in_blob_stream_base {
public:
    explicit in_blob_ref_stream(const std::vector<std::uint8_t>& blob) noexcept
        : in_blob_stream_base(blob.data(), blob.size()) {}
    explicit in_blob_ref_stream(std::vector<std::uint8_t>&&) = delete;
};

} // namespace zel::serialization
