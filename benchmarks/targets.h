// The ratios that the benchmarks promise.
#pragma once

#include <string>
#include <vector>

namespace zel::benchmarks {

/// A benchmark against another, or a counter against its limit.
struct target {
    std::string what;
    std::string measured; ///< a benchmark's time, or "benchmark:counter"
    std::string against;  ///< empty for a limit in the counter's own unit
    double limit;
};

/// In the order in which they are shown.
std::vector<target> targets();

} // namespace zel::benchmarks
