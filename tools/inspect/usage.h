// What --help prints.
#pragma once

#include "tools/inspect/command_line.h"

namespace inspect {

extern const char* const usage;
const char* usage_of(command what);

} // namespace inspect
