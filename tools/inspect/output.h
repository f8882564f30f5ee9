// Standard output, without losing a failure.
#pragma once

#include <string>

namespace inspect {

/// Writes the text and hands it on at once. Throws std::system_error.
void print(const std::string& text);

} // namespace inspect
