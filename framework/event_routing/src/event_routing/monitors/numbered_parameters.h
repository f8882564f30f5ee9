// The parameters of a message that got a number, for its monitors.
//
// The caller's map is never changed, so a number takes a copy. Most messages have no
// parameters of their own; their copies are alike but for the number, and making the
// two entries anew would cost as much as telling a monitor. One is kept for the next
// such message.
#pragma once

#include "framework/event_routing/src/event_routing/module/message_counters.h"

#include <platform/process.h>

#include <atomic>
#include <iterator>
#include <memory>

namespace zel::event_routing::impl {

/// Of one service. Any thread may use it.
class spare_parameters {
public:
    spare_parameters() = default;
    ~spare_parameters() { delete spare_.load(std::memory_order_relaxed); }
    spare_parameters(const spare_parameters&) = delete;
    spare_parameters& operator=(const spare_parameters&) = delete;

private:
    friend class numbered_parameters;
    // Null while a message uses it. Acquire and release: whoever takes the map sees it
    // as the last one left it.
    std::atomic<routing_parameters*> spare_{nullptr};
};

/// Of one message; empty until it gets its number.
class numbered_parameters {
public:
    explicit numbered_parameters(spare_parameters& spare) noexcept : spare_(spare) {}
    ~numbered_parameters() {
        if (may_be_kept_)
            delete spare_.spare_.exchange(copy_.release(), std::memory_order_acq_rel);
    }
    numbered_parameters(const numbered_parameters&) = delete;
    numbered_parameters& operator=(const numbered_parameters&) = delete;

    /// A copy of the parameters with the number, which lives as long as this object.
    const routing_parameters& add_number(const routing_parameters& original, std::uint32_t number) {
        const bool is_alike = original.empty(); // to every other message without parameters
        if (is_alike)
            copy_.reset(spare_.spare_.exchange(nullptr, std::memory_order_acquire));
        if (copy_) {
            renumber(*copy_, number);
        } else {
            copy_ = std::make_unique<routing_parameters>(original);
            overwrite_message_number(*copy_, number);
        }
        may_be_kept_ = is_alike; // complete, that is
        return *copy_;
    }

private:
    // Its two entries are known by their order.
    static void renumber(routing_parameters& spare, std::uint32_t number) {
        const auto first = spare.begin();
        first->second = number;
        std::next(first)->second = platform::process_id();
    }

    spare_parameters& spare_;
    std::unique_ptr<routing_parameters> copy_;
    bool may_be_kept_ = false;
};

} // namespace zel::event_routing::impl
