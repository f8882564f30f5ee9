// Counts what a piece of code does to the processor, instruction by instruction.
#pragma once

#include <functional>
#include <optional>

namespace zel::platform {

struct watched_instructions {
    int locked = 0; ///< atomic operations that read and write: locks, counts, exchanges
    int system_calls = 0;
};

/// Runs `prepare`, and then `watched` under observation, in a copy of the process, whose only
/// thread this one becomes. Nothing where processes may not be observed, or this processor is
/// not known.
std::optional<watched_instructions> watch_instructions(const std::function<void()>& prepare,
                                                       const std::function<void()>& watched);

} // namespace zel::platform
