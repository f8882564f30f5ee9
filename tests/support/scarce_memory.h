// Lets the n-th allocation of an operation fail, for every n it makes. The test program
// links scarce_memory.cpp, whose allocation functions stand in for the system's.
#pragma once

#include <functional>

namespace zel::test {

enum class shortage {
    passing, ///< one allocation fails, the next ones do not
    lasting, ///< all fail from there to the end of the operation
};

/// Repeats the operation on this thread, with one more allocation granted each time, until
/// none fails. It may throw std::bad_alloc. Returns how many allocations it needs.
int failures_of(const std::function<void()>& operation, shortage kind = shortage::passing);

} // namespace zel::test
