#include "framework/log/source_position.h"

#include <bit>
#include <cstdint>
#include <md5.h>
#include <stdexcept>
#include <string>

namespace zel::log {

source_identifier identify_source(std::string_view source_path) {
    if (!source_path.starts_with(build_root))
        throw std::logic_error("The prefixes do not match");
    std::string path(source_path.substr(build_root.size()));
    for (char& c : path)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');

    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, reinterpret_cast<const std::uint8_t*>(path.data()), path.size());
    std::array<std::uint8_t, MD5_DIGEST_LENGTH> digest{};
    MD5Final(digest.data(), &context);

    constexpr std::string_view digits = "0123456789ABCDEF";
    source_identifier identifier{};
    for (std::size_t i = 0; i < identifier.size(); ++i)
        identifier[i] = digits[(digest[i / 2] >> (i % 2 == 0 ? 4 : 0)) & 0xF];
    return identifier;
}

source_identifier source_position::identifier() {
    std::uint64_t digits = identifier_.load(std::memory_order_relaxed);
    if (digits == 0) {
        digits = std::bit_cast<std::uint64_t>(identify_source(path_));
        identifier_.store(digits, std::memory_order_relaxed);
    }
    return std::bit_cast<source_identifier>(digits);
}

} // namespace zel::log
