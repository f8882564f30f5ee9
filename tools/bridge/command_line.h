// What the user asked for.
#pragma once

#include "tools/inspect/host.h"

#include <string>
#include <vector>

namespace bridge_program {

struct command_line {
    std::string answer; ///< if not empty, to be printed instead of all the rest

    std::string configuration; ///< a file; never empty
    bool only_check = false;
    std::vector<inspect::component_source> components; ///< empty only for a check

    /// `arguments` without the program's name. Throws inspect::usage_error.
    static command_line parse(const std::vector<std::string>& arguments);
};

} // namespace bridge_program
