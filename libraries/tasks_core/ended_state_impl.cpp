#include "libraries/tasks_core/ended_state_impl.h"

#include <platform/announced_wait.h>

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
    is_ended_.store(true, std::memory_order_release);
    ended_.set();
}

bool ended_state_impl::wait_ended(threading::universal_timeout timeout) {
    if (is_ended())
        return true;
    const auto limit = milliseconds_of(timeout);
    if (limit == platform::milliseconds::zero())
        return false;
    const platform::announced_wait others_take_over;
    return ended_.wait(limit);
}

} // namespace zel::tasklib
