// A way into something that threads use all the time and that ends once.
//
//     if (const thread_gate::visit inside(gate); inside) use();      any thread, any time
//     gate.close(); destroy();                                       once
//
// To enter and to leave costs a store each, in a line of the cache that no other thread
// writes; whoever closes the gate pays for all.
#pragma once

#include <platform/export.h>
#include <platform/process_barrier.h>
#include <platform/thread_slot.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace zel::platform {

/// May stand in static storage of a library that is unloaded. Threads are inside for a short
/// while, in which they do not wait for whoever closes the gate. May be entered again by a thread
/// that is inside.
class thread_gate {
public:
    constexpr thread_gate() noexcept = default;
    thread_gate(const thread_gate&) = delete;
    thread_gate& operator=(const thread_gate&) = delete;

    /// By whoever makes what stands behind the gate; without it, entering costs an atomic
    /// operation of the whole process.
    static void prepare() noexcept { prepare_heavy_barrier(); }

    /// On one thread.
    class visit {
    public:
        explicit visit(thread_gate& gate) noexcept : gate_(gate), is_inside_(gate.enter()) {}
        ~visit() {
            if (is_inside_)
                gate_.change(-1);
        }
        visit(const visit&) = delete;
        visit& operator=(const visit&) = delete;

        /// False when the gate is closed.
        explicit operator bool() const noexcept { return is_inside_; }

    private:
        thread_gate& gate_;
        const bool is_inside_;
    };

    /// Lets nobody in from now on, and waits until all have left; not in the child of a fork
    /// that has left threads behind (threads_were_lost), which never leave. Not from inside.
    ZEL_EXPORT void close() noexcept;

private:
    struct alignas(64) place {
        // Release: what the thread did inside is seen by whoever closes the gate.
        std::atomic<std::int32_t> inside{0};
    };

    bool enter() noexcept {
        change(1);
        light_barrier();
        if (!is_closed_.load(std::memory_order_acquire))
            return true;
        change(-1);
        return false;
    }
    void change(std::int32_t by) noexcept {
        const auto slot = thread_slot();
        auto& inside = places_[slot].inside;
        if (slot != shared_thread_slot)
            inside.store(inside.load(std::memory_order_relaxed) + by, std::memory_order_release);
        else
            inside.fetch_add(by, std::memory_order_release);
    }

    std::array<place, own_thread_slots + 1> places_;
    // Acquire and release: who finds it closed sees what led to that. The barriers order it
    // with the places.
    std::atomic<bool> is_closed_{false};
};

} // namespace zel::platform
