// Texts of others, safe to show on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace inspect {

/// UTF-8 as it is, but for what a terminal might take for a command: a control character
/// or a byte that is no UTF-8 becomes "\x1b" or the like, a backslash two.
std::string printable(std::string_view text);

/// Of a message, parts of which may be printable already: lines, tabs and backslashes stay.
std::string printable_message(std::string_view message);

} // namespace inspect
