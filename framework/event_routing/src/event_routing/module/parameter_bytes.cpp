#include "framework/event_routing/src/event_routing/module/parameter_bytes.h"

#include "framework/exceptions/exceptions.h"

#include <gsl/narrow>
#include <stdexcept>

namespace zel::event_routing::impl {

namespace {

constexpr std::size_t bytes_besides_key_and_text = 16;

// Independent of the machine's byte order; compilers make one move of it.
template <class Unsigned>
void put(std::vector<std::uint8_t>& out, Unsigned value) {
    for (std::size_t i = 0; i < sizeof(value); ++i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void put(std::vector<std::uint8_t>& out, const std::string& text) {
    put(out, gsl::narrow<std::uint32_t>(text.size()));
    out.insert(out.end(), text.begin(), text.end());
}

class reader {
public:
    explicit reader(std::span<const std::uint8_t> bytes) : left_(bytes) {}

    bool at_end() const noexcept { return left_.empty(); }

    template <class Unsigned>
    Unsigned number() {
        Unsigned value = 0;
        std::size_t shift = 0;
        for (const std::uint8_t byte : take(sizeof(Unsigned))) {
            value |= static_cast<Unsigned>(byte) << shift;
            shift += 8;
        }
        return value;
    }

    std::string text() {
        const auto bytes = take(number<std::uint32_t>());
        return {bytes.begin(), bytes.end()};
    }

private:
    std::span<const std::uint8_t> take(std::size_t count) {
        if (count > left_.size())
            throw exceptions::error("Invalid binary event routing data");
        const auto taken = left_.first(count);
        left_ = left_.subspan(count);
        return taken;
    }

    std::span<const std::uint8_t> left_;
};

} // namespace

std::vector<std::uint8_t> parameters_to_bytes(const routing_parameters& parameters,
                                              std::size_t limit) {
    std::size_t size = 0;
    for (const auto& [key, value] : parameters)
        size += bytes_besides_key_and_text + key.size() + value.text.size();
    if (size > limit)
        throw std::length_error("vector too long");

    std::vector<std::uint8_t> bytes;
    bytes.reserve(size);
    for (const auto& [key, value] : parameters) {
        put(bytes, key);
        put(bytes, static_cast<std::uint64_t>(value.number));
        put(bytes, value.text);
    }
    return bytes;
}

routing_parameters parameters_from_bytes(std::span<const std::uint8_t> bytes) {
    routing_parameters parameters;
    for (reader in(bytes); !in.at_end();) {
        std::string key = in.text();
        routing_parameter_value value(static_cast<std::int64_t>(in.number<std::uint64_t>()));
        // A text, when there is one, takes the number's place.
        if (std::string text = in.text(); !text.empty())
            value = std::move(text);
        parameters.insert_or_assign(std::move(key), std::move(value));
    }
    return parameters;
}

} // namespace zel::event_routing::impl
