#include <platform/critical_section.h>
#include <platform/process.h>
#include <platform/wait_on_address.h>

namespace zel::platform {

namespace {

// Long enough for a holder on the other core to finish a short section, short
// enough not to matter when it was preempted.
constexpr int spins_before_sleep = 100;

} // namespace

void plain_lock::lock_contended() noexcept {
    for (int spin = 0; spin < spins_before_sleep; ++spin) {
        // Relaxed: only a hint, try_take orders.
        if (state_.load(std::memory_order_relaxed) == free && try_take())
            return;
        pause_processor();
    }
    // From here on the word says "contended", so that the owner wakes us. Acquire
    // as in try_take.
    while (state_.exchange(contended, std::memory_order_acquire) != free)
        wait_on_address(state_, contended, std::nullopt);
}

void plain_lock::wake_next() noexcept {
    wake_one(state_);
}

void critical_section::lock() noexcept {
    const thread_id self = this_thread_id();
    if (owner_.load(std::memory_order_relaxed) != self) {
        lock_.lock();
        owner_.store(self, std::memory_order_relaxed);
    }
    ++depth_;
}

bool critical_section::try_lock() noexcept {
    const thread_id self = this_thread_id();
    if (owner_.load(std::memory_order_relaxed) != self) {
        if (!lock_.try_lock())
            return false;
        owner_.store(self, std::memory_order_relaxed);
    }
    ++depth_;
    return true;
}

void critical_section::unlock() noexcept {
    if (--depth_ != 0)
        return;
    owner_.store(no_thread, std::memory_order_relaxed);
    lock_.unlock();
}

} // namespace zel::platform
