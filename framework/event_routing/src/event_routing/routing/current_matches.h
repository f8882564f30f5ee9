// What a text matches right now, remembered or collected.
#pragma once

#include "framework/event_routing/src/event_routing/routing/match_records.h"
#include "framework/event_routing/src/event_routing/routing/routing_lock.h"

#include <platform/diagnostics.h>

#include <memory>

namespace zel::event_routing::impl {

/// Null when nothing that still holds is remembered.
template <class Matches>
std::shared_ptr<const Matches> remembered_matches(match_records<Matches>& records,
                                                  const routing_lock& lock, const text_key& text) {
    const auto present = lock.current_generation();
    return routing_lock::is_stable(present) ? records.recall(text, present) : nullptr;
}

/// Waits for a registration on another thread. `collect` is called with the generation,
/// under the lock held shared.
template <class Matches, class Collect>
std::shared_ptr<const Matches> current_matches(match_records<Matches>& records, routing_lock& lock,
                                               const text_key& text, const Collect& collect) {
    auto matches = remembered_matches(records, lock, text);
    if (matches)
        return matches;
    {
        threading::shared_lock_guard maps_are_stable(lock);
        matches = collect(lock.current_generation());
    }
    // What cannot be remembered is looked for again.
    if (routing_lock::is_stable(matches->generation))
        platform::guarded([&] { records.remember(matches); });
    return matches;
}

} // namespace zel::event_routing::impl
