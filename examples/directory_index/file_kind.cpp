#include "examples/directory_index/file_kind.h"

#include <algorithm>

namespace directory_index {

namespace {

// File names are bytes in an unknown encoding; beyond ASCII there is no lower case.
char plain(char c) {
    if (c == ';')
        return '_';
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

std::string extension_of(std::string_view file_name) {
    const auto dot = file_name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {};
    std::string extension(file_name.substr(dot + 1));
    std::transform(extension.begin(), extension.end(), extension.begin(), plain);
    return extension;
}

std::string magnitude_of(std::int64_t size) {
    constexpr std::int64_t medium = 16 * 1024;
    constexpr std::int64_t large = 1024 * 1024;
    if (size == 0)
        return "empty";
    return size < medium ? "small" : size < large ? "medium" : "large";
}

} // namespace directory_index
