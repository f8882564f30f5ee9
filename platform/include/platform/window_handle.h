// Names a window.
#pragma once

#include <cstdint>

namespace zel::platform {

enum class window_handle : std::uintptr_t { none = 0 };

} // namespace zel::platform
