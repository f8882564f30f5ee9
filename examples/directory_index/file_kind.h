// What a file's name and size say about it, as subnodes of a path.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace directory_index {

/// The text behind the last "." of a file name, ASCII letters in lower case. Empty
/// for a name without a "." and for one that only starts with it (".bashrc"). A ";"
/// becomes "_", because in a broadcast it would begin another path.
std::string extension_of(std::string_view file_name);

/// "empty" (0 bytes), "small" (below 16 KiB), "medium" (below 1 MiB) or "large".
std::string magnitude_of(std::int64_t size);

} // namespace directory_index
