// The parameters of a message that got a number, for its monitors.
//
// The caller's map is never changed, so a number takes a copy. Most messages have no
// parameters of their own; their copies are alike but for the number, and making the
// two entries anew would cost as much as telling a monitor. Each thread keeps one for its next
// such message.
#pragma once

#include "framework/event_routing/src/event_routing/module/message_counters.h"
#include "framework/event_routing/src/event_routing/routing/thread_records.h"

#include <platform/process.h>

#include <iterator>
#include <memory>

namespace zel::event_routing::impl {

/// Of one service; each thread has a map of its own.
class spare_parameters {
public:
    explicit spare_parameters(thread_records& threads) noexcept : threads_(threads) {}
    /// No message is under way.
    ~spare_parameters() { threads_.drop_parts(this); }
    spare_parameters(const spare_parameters&) = delete;
    spare_parameters& operator=(const spare_parameters&) = delete;

private:
    friend class numbered_parameters;
    struct of_thread final : thread_part {
        std::unique_ptr<routing_parameters> spare; // null while a message uses it
    };

    /// Throws std::bad_alloc.
    of_thread& mine(thread_record& own) {
        if (auto* const known = own.part_of(this))
            return static_cast<of_thread&>(*known);
        auto made = std::make_unique<of_thread>();
        of_thread& added = *made;
        threads_.add_part(own, this, std::move(made));
        return added;
    }

    thread_records& threads_;
};

/// Of one message; empty until it gets its number.
class numbered_parameters {
public:
    explicit numbered_parameters(spare_parameters& spare) noexcept : spare_(spare) {}
    ~numbered_parameters() {
        if (mine_)
            mine_->spare = std::move(copy_);
    }
    numbered_parameters(const numbered_parameters&) = delete;
    numbered_parameters& operator=(const numbered_parameters&) = delete;

    /// A copy of the parameters with the number, which lives as long as this object.
    const routing_parameters& add_number(thread_record& own, const routing_parameters& original,
                                         std::uint32_t number) {
        const bool is_alike = original.empty(); // to every other message without parameters
        auto* const mine = is_alike ? &spare_.mine(own) : nullptr;
        if (mine)
            copy_ = std::move(mine->spare);
        if (copy_) {
            renumber(*copy_, number);
        } else {
            copy_ = std::make_unique<routing_parameters>(original);
            overwrite_message_number(*copy_, number);
        }
        mine_ = mine; // complete, that is
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
    spare_parameters::of_thread* mine_ = nullptr; // where the copy may be kept
};

} // namespace zel::event_routing::impl
