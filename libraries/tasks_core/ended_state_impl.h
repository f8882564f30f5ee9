// The end of one task.
#pragma once

#include <tasklib/ended_state.h>

#include <atomic>

namespace zel::tasklib {

class ended_state_impl final : public ended_state_ifc {
public:
    void set_ended() override;
    bool is_ended() const override { return word_.load(std::memory_order_acquire) == ended; }
    bool wait_ended(threading::universal_timeout timeout) override;
    platform::thread_id running_thread() const override {
        return running_thread_.load(std::memory_order_relaxed);
    }
    void set_running_thread(platform::thread_id thread) override {
        running_thread_.store(thread, std::memory_order_relaxed);
    }

private:
    enum : std::uint32_t { not_ended, waited_for, ended };

    // What waiters sleep on. Release and acquire: what the task did is seen by who finds it
    // ended.
    std::atomic<std::uint32_t> word_{not_ended};
    // Relaxed: the task orders it where that matters.
    std::atomic<platform::thread_id> running_thread_{platform::no_thread};
};

} // namespace zel::tasklib
