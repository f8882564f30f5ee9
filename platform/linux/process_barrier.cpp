#include <platform/process_barrier.h>

#include <cstdlib>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {

namespace {

bool barrier_call(int command) noexcept {
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

} // namespace

constinit std::atomic<bool> detail::heavy_barrier_reaches_all{false};
constinit std::atomic<bool> detail::exchanged_by_all{false};

void prepare_heavy_barrier() noexcept {
    if (!detail::heavy_barrier_reaches_all.load(std::memory_order_relaxed) &&
        barrier_call(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED))
        detail::heavy_barrier_reaches_all.store(true, std::memory_order_relaxed);
}

// Threads that do not run have passed a fence when they were suspended.
void heavy_barrier() noexcept {
    detail::exchanged_by_all.exchange(true, std::memory_order_seq_cst);
    // Whatever the flag says: another thread may have seen it set. To go on without the
    // fence would be to use freed memory some day.
    if (!barrier_call(MEMBARRIER_CMD_PRIVATE_EXPEDITED) &&
        detail::heavy_barrier_reaches_all.load(std::memory_order_relaxed) &&
        !barrier_call(MEMBARRIER_CMD_GLOBAL))
        std::abort();
}

} // namespace zel::platform
