// Length of a wait in this layer.
#pragma once

#include <chrono>

namespace zel::platform {

using milliseconds = std::chrono::milliseconds;

/// A wait without a limit.
inline constexpr milliseconds infinite = milliseconds::max();

} // namespace zel::platform
