#include <platform/wait_on_address.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {

namespace {

// The raw call, unlike the C library's waits, is no cancellation point.
long futex(const std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* deadline) noexcept {
    return syscall(SYS_futex, &word, operation, value, deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
}

} // namespace

wait_deadline deadline_after(milliseconds timeout) noexcept {
    const auto now = std::chrono::steady_clock::now();
    if (timeout <= milliseconds::zero())
        return now;
    const auto left = std::chrono::steady_clock::time_point::max() - now;
    if (timeout >= std::chrono::duration_cast<milliseconds>(left))
        return std::nullopt;
    return now + timeout;
}

bool wait_on_address(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                     wait_deadline deadline) noexcept {
    timespec until{};
    if (deadline) {
        const auto since = deadline->time_since_epoch();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
        until.tv_sec = seconds.count();
        until.tv_nsec = (since - seconds).count();
    }
    // An absolute time on the steady clock: early wakes do not prolong the wait.
    const long result =
        futex(word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline ? &until : nullptr);
    return result == 0 || errno != ETIMEDOUT;
}

void wake_one(const std::atomic<std::uint32_t>& word) noexcept {
    futex(word, FUTEX_WAKE_PRIVATE, 1, nullptr);
}

void wake_all(const std::atomic<std::uint32_t>& word) noexcept {
    futex(word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr);
}

} // namespace zel::platform
