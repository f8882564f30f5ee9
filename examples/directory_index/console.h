// What the user sees.
#pragma once

#include <functional>
#include <string>

namespace directory_index {

/// To standard output. Throws std::system_error when it cannot be written.
void print(const std::string& text);

/// Something like `print`.
using printer = std::function<void(const std::string& text)>;

/// A line with the program's name, to standard error.
void complain(const std::string& text);

} // namespace directory_index
