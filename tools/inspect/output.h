// Standard output, for this program alone and without losing a failure.
#pragma once

#include <string>

namespace inspect {

/// From now on what components write to standard output goes to standard error. Once, before
/// they are loaded. Throws std::system_error.
void take_output();

/// Whether a person reads what is printed.
bool is_for_a_person();

/// Writes the text and hands it on at once. Throws std::system_error.
void print(const std::string& text);

} // namespace inspect
