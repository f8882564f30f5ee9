// The end of one task.
#pragma once

#include <tasklib/ended_state.h>

#include <platform/event.h>

#include <atomic>

namespace zel::tasklib {

class ended_state_impl final : public ended_state_ifc {
public:
    void set_ended() override;
    bool is_ended() const override { return is_ended_.load(std::memory_order_acquire); }
    bool wait_ended(threading::universal_timeout timeout) override;
    platform::thread_id running_thread() const override {
        return running_thread_.load(std::memory_order_relaxed);
    }
    void set_running_thread(platform::thread_id thread) override {
        running_thread_.store(thread, std::memory_order_relaxed);
    }

private:
    // Release and acquire: what the task did is seen by who finds it ended.
    std::atomic<bool> is_ended_{false};
    // Relaxed: the task's own lock orders it where that matters.
    std::atomic<platform::thread_id> running_thread_{platform::no_thread};
    platform::event ended_{platform::reset_mode::manual, false};
};

} // namespace zel::tasklib
