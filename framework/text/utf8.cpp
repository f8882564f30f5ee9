#include "framework/text/utf8.h"

namespace zel::text {

namespace {

std::size_t well_formed_length(std::string_view bytes) noexcept {
    std::size_t length = 0;
    while (length < bytes.size()) {
        const std::size_t character = character_length(bytes.substr(length));
        if (character == 0)
            break;
        length += character;
    }
    return length;
}

} // namespace

std::size_t character_length(std::string_view bytes) noexcept {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || bytes.size() < length)
        return 0;
    // Not the longer forms of shorter characters, surrogates, or beyond U+10FFFF.
    const unsigned char lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned char highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (byte(1) < lowest || byte(1) > highest)
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    return length;
}

bool is_utf8(std::string_view bytes) noexcept {
    return well_formed_length(bytes) == bytes.size();
}

std::string as_utf8(std::string_view bytes) {
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string text;
    while (!bytes.empty()) {
        const std::size_t length = well_formed_length(bytes);
        text.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
        if (bytes.empty())
            break;
        text.append(replacement);
        bytes.remove_prefix(1);
    }
    return text;
}

bool is_control(std::string_view character) noexcept {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
    if (character.size() == 1)
        return byte(0) < 0x20 || byte(0) == 0x7F;
    return byte(0) == 0xC2 && byte(1) < 0xA0;
}

} // namespace zel::text
