// Texts that should be UTF-8, but that nobody has checked yet.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zel::text {

/// Length of the character at the beginning of the bytes; 0 when they do not begin with a
/// well-formed one. There has to be at least one byte.
std::size_t character_length(std::string_view bytes) noexcept;

bool is_utf8(std::string_view bytes) noexcept;

/// The same text with U+FFFD in place of every byte that is not part of a well-formed
/// character.
std::string as_utf8(std::string_view bytes);

/// Whether terminals take the character for a command or for the beginning of one: those up
/// to U+001F, and U+007F to U+009F.
bool is_control(std::string_view character) noexcept;

} // namespace zel::text
