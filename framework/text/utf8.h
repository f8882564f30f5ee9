// Texts in UTF-8, of which nobody has made sure that they are.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zel::text {

/// Length of the well-formed character at the beginning of bytes that are not empty; 0 when
/// there is none.
std::size_t character_length(std::string_view bytes) noexcept;

bool is_utf8(std::string_view bytes) noexcept;

/// The same text with every byte that is not part of well-formed UTF-8 as U+FFFD.
std::string as_utf8(std::string_view bytes);

/// Whether a character is one of those that terminals take for commands or the start of
/// them: up to U+001F, and U+007F to U+009F.
bool is_control(std::string_view character) noexcept;

} // namespace zel::text
