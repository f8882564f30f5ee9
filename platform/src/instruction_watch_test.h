// Counts what a piece of code does to the processor, instruction by instruction.
#pragma once

#include <functional>
#include <optional>

namespace zel::platform {

struct watched_instructions {
    int locked = 0; ///< atomic operations that read and write: locks, counts, exchanges
    int system_calls = 0;
};

/// Runs a program in a copy of the process, whose only thread this one becomes at first, until
/// one of its threads has called `mark_watched` twice. Returns what that thread did in between.
/// Nothing where processes may not be observed, or this processor is not known.
std::optional<watched_instructions> watch_marked(const std::function<void()>& program);
void mark_watched();

/// The same for a program that prepares and then does what is watched.
std::optional<watched_instructions> watch_instructions(const std::function<void()>& prepare,
                                                       const std::function<void()>& watched);

} // namespace zel::platform
