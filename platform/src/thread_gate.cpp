#include <platform/thread_gate.h>

#include <platform/process.h>

namespace zel::platform {

void thread_gate::close() noexcept {
    is_closed_.store(true, std::memory_order_release);
    heavy_barrier();
    if (threads_were_lost())
        return;
    // Those inside are through in a moment; one that was suspended there takes longer.
    for (const place& p : places_)
        while (p.inside.load(std::memory_order_acquire) != 0)
            sleep_for(milliseconds(1));
}

} // namespace zel::platform
