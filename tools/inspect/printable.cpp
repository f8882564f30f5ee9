#include "tools/inspect/printable.h"

#include "framework/text/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace inspect {

namespace {

// Characters in `kept` stay as they are, even those that would be shown in another way.
std::string shown_safely(std::string_view text, std::string_view kept) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = zel::text::character_length(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(1, length));
        if (kept.find(character) != kept.npos)
            shown += character;
        else if (character == "\\")
            shown += "\\\\";
        else if (length != 0 && !zel::text::is_control(character))
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
