// What the user asked for.
#pragma once

#include <string>
#include <vector>

namespace directory_index {

extern const char* const usage;

struct command_line {
    bool help = false;
    bool handlers = false;
    bool watch = false;
    bool ui = false;
    bool log = false;
    bool gitignore = false;
    std::string trace; ///< the file; empty for none
    std::vector<std::string> questions;
    std::string folder;    ///< may be empty for the handlers
    std::string complaint; ///< empty when the rest is to be done

    /// `arguments` without the program's name.
    static command_line parse(const std::vector<std::string>& arguments);
};

} // namespace directory_index
