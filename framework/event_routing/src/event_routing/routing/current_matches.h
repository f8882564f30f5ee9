// What a text matches right now, remembered or collected.
#pragma once

#include "framework/event_routing/src/event_routing/routing/match_records.h"
#include "framework/event_routing/src/event_routing/routing/routing_lock.h"

#include <platform/diagnostics.h>

#include <memory>

namespace zel::event_routing::impl {

/// Of one message: the matches at hand, remembered ones without a reference.
template <class Matches>
class current_matches {
public:
    /// The message is in its scope for as long as the matches are used.
    current_matches(match_records<Matches>& records, message_scope& message) noexcept
        : records_(records), message_(message) {}

    explicit operator bool() const noexcept { return matches_; }
    const Matches& operator*() const noexcept { return *matches_; }
    const Matches* operator->() const noexcept { return matches_; }
    const Matches* get() const noexcept { return matches_; }

    /// A reference that outlives the message.
    std::shared_ptr<const Matches> share() const { return matches_->shared_from_this(); }

    /// Remembered matches of this generation. False when there are none.
    bool recall(std::string_view text, std::uint64_t generation) {
        own_.reset();
        matches_ = records_.recall(message_, text, generation);
        return matches_;
    }

    /// Matches that the message has made, perhaps remembered for others.
    void keep(std::shared_ptr<const Matches> made) noexcept {
        own_ = std::move(made);
        matches_ = own_.get();
        message_.frame().list.name_opaque();
    }
    void remember(std::shared_ptr<const Matches> made) noexcept {
        keep(std::move(made));
        // What cannot be remembered is looked for again.
        if (routing_lock::is_stable(own_->generation))
            platform::guarded([&] { records_.remember(own_); });
    }

    /// Those that hold right now. Waits for a registration on another thread. `collect` is
    /// called with the generation, under the lock held shared.
    template <class Collect>
    void update(routing_lock& lock, std::string_view text, const Collect& collect) {
        const auto present = lock.current_generation();
        if (routing_lock::is_stable(present) && recall(text, present))
            return;
        std::shared_ptr<const Matches> made;
        {
            threading::shared_lock_guard maps_are_stable(lock);
            made = collect(lock.current_generation());
        }
        remember(std::move(made));
    }

private:
    match_records<Matches>& records_;
    message_scope& message_;
    std::shared_ptr<const Matches> own_;
    const Matches* matches_ = nullptr;
};

} // namespace zel::event_routing::impl
