#include "tools/inspect/printable.h"

#include "framework/serialization/json_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace inspect {

namespace {

// Bytes of the UTF-8 character at the beginning, 0 when there is none.
std::size_t character_length(std::string_view text) {
    for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length)
        if (zel::serialization::is_utf8(text.substr(0, length)))
            return length;
    return 0;
}

bool is_control(std::string_view character) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
    if (character.size() == 1)
        return byte(0) < 0x20 || byte(0) == 0x7F;
    // U+0080 to U+009F: terminals take some of them for the start of a command.
    return byte(0) == 0xC2 && byte(1) < 0xA0;
}

// `kept`: what stays though it would be shown otherwise.
std::string shown_safely(std::string_view text, std::string_view kept) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(1, length));
        if (kept.find(character) != kept.npos)
            shown += character;
        else if (character == "\\")
            shown += "\\\\";
        else if (length != 0 && !is_control(character))
            shown += character;
        else
            for (const char byte : character)
                shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
        text.remove_prefix(character.size());
    }
    return shown;
}

} // namespace

std::string printable(std::string_view text) {
    return shown_safely(text, {});
}

std::string printable_message(std::string_view message) {
    return shown_safely(message, "\n\t\\");
}

} // namespace inspect
