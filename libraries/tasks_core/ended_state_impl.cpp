#include "libraries/tasks_core/ended_state_impl.h"

#include <platform/announced_wait.h>
#include <platform/wait_on_address.h>

#include <algorithm>

namespace zel::tasklib {

namespace {

// Rounded up, so that a wait never ends before its time.
platform::milliseconds milliseconds_of(threading::universal_timeout timeout) {
    if (timeout.infinite)
        return platform::infinite;
    return std::chrono::ceil<platform::milliseconds>(
        std::chrono::microseconds(std::max<std::int64_t>(timeout.microseconds, 0)));
}

} // namespace

void ended_state_impl::set_ended() {
    if (word_.exchange(ended, std::memory_order_release) == waited_for)
        platform::wake_all(word_);
}

bool ended_state_impl::wait_ended(threading::universal_timeout timeout) {
    if (is_ended())
        return true;
    const auto limit = milliseconds_of(timeout);
    if (limit == platform::milliseconds::zero())
        return false;
    const platform::announced_wait others_take_over;
    const auto deadline = platform::deadline_after(limit);
    for (bool has_time = true; has_time;) {
        std::uint32_t seen = not_ended;
        // Relaxed: a word that is ended is looked at again.
        word_.compare_exchange_strong(seen, waited_for, std::memory_order_relaxed);
        if (seen == ended)
            break;
        has_time = platform::wait_on_address(word_, waited_for, deadline);
    }
    return is_ended();
}

} // namespace zel::tasklib
