// What the kernel counted for a thread since it began.
#pragma once

#include <platform/export.h>

#include <cstdint>
#include <optional>

namespace zel::platform {

struct thread_statistics {
    std::int64_t user_time = 0;   ///< processor time in 100 ns ticks
    std::int64_t kernel_time = 0; ///< likewise
    std::int64_t page_faults = 0; ///< all of them
    std::int64_t page_reads = 0;  ///< those for which a page was read from a device
    std::int64_t voluntary_switches = 0;
    std::int64_t involuntary_switches = 0;
};

/// Of the calling thread; a system call. Nothing where the system does not count.
ZEL_EXPORT std::optional<thread_statistics> read_thread_statistics() noexcept;

} // namespace zel::platform
