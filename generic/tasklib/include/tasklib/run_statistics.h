// What the runs of a task cost.
#pragma once

#include <cstdint>

namespace zel::tasklib {

/// The counters at one moment of a run.
struct run_snapshot {
    std::int64_t system_time = 0; ///< 100 ns ticks
    std::int64_t performance_counter = 0;
    std::int64_t thread_cycles = 0;
};

struct run_statistics {
    std::uint32_t runs = 0;
    std::int64_t performance_counter = 0; ///< sums of the differences
    std::int64_t thread_cycles = 0;
    std::int64_t system_time = 0;
};

} // namespace zel::tasklib
