// The log of task execution.
#pragma once

#include "framework/log/log_area.h"

namespace zel::tasklib {

inline constexpr log::log_area tasks_log("tasks");

} // namespace zel::tasklib
