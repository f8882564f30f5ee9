// Running another program and reading what it prints.
#pragma once

#include <platform/export.h>

#include <span>
#include <string>
#include <string_view>

namespace zel::platform {

struct program_result {
    std::string output;
    int exit_code = 0; ///< as shells show it: 128 and the signal's number for one that ended it
};

/// Runs a program to its end. It is looked for where the system looks for programs; no
/// shell is involved, so arguments are given to it byte for byte. It reads `input`, writes
/// failures to this process's standard error and inherits no other file. Any thread.
///
/// Throws std::system_error when it could not be started: one that does not exist gives
/// std::errc::no_such_file_or_directory.
ZEL_EXPORT program_result run_program(const std::string& program,
                                      std::span<const std::string> arguments,
                                      std::string_view input);

} // namespace zel::platform
