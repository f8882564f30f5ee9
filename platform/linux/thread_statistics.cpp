#include <platform/thread_statistics.h>

#include <sys/resource.h>

namespace zel::platform {

static std::int64_t ticks(const timeval& time) noexcept {
    return std::int64_t{time.tv_sec} * 10'000'000 + std::int64_t{time.tv_usec} * 10;
}

std::optional<thread_statistics> read_thread_statistics() noexcept {
    rusage usage{};
    if (getrusage(RUSAGE_THREAD, &usage) != 0)
        return std::nullopt;
    return thread_statistics{.user_time = ticks(usage.ru_utime),
                             .kernel_time = ticks(usage.ru_stime),
                             .page_faults = usage.ru_minflt + usage.ru_majflt,
                             .page_reads = usage.ru_majflt,
                             .voluntary_switches = usage.ru_nvcsw,
                             .involuntary_switches = usage.ru_nivcsw};
}

} // namespace zel::platform
