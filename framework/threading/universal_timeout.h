// Length of a wait or a delay.
#pragma once

#include <cstdint>

namespace zel::threading {

struct universal_timeout {
    bool infinite = true;
    std::int64_t microseconds = 0; ///< looked at only when not infinite
};

} // namespace zel::threading
