// Numbers and names as the report shows them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace directory_index {

/// 1234567 as "1,234,567".
std::string grouped(std::int64_t number);

/// The number and the noun, in the plural if needed: "1 file", "1,200 files".
std::string counted(std::int64_t number, std::string_view noun);

/// Bytes with one decimal and a binary unit: "17 B", "1.2 KiB".
std::string readable_size(std::int64_t bytes);

/// The name on one line and without effect on a terminal: control characters, the
/// backslash and bytes that are no UTF-8 appear as \n, \t, \\ or \x1b.
std::string printable(std::string_view name);

} // namespace directory_index
