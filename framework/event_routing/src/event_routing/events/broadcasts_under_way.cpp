#include "framework/event_routing/src/event_routing/events/broadcasts_under_way.h"

namespace zel::event_routing::impl {

bool broadcasts_under_way::find_lists_of_others(
    std::span<std::shared_ptr<const match_list>> lists) const {
    const auto self = std::this_thread::get_id();
    std::size_t found = 0;
    for (const auto* b = first_; b; b = b->next_) {
        if (b->thread_ == self || !b->list())
            continue;
        if (found == lists.size())
            return false;
        lists[found++] = b->list()->shared_from_this();
    }
    return true;
}

bool broadcasts_under_way::is_inside(const registered_handler& handler) const noexcept {
    const auto self = std::this_thread::get_id();
    for (const auto* b = first_; b; b = b->next_)
        // Relaxed: only what this thread has written counts.
        if (b->thread_ == self && b->inside_.load(std::memory_order_relaxed) == &handler)
            return true;
    return false;
}

void broadcasts_under_way::count_uses(registered_handler& removed) noexcept {
    for (auto* b = first_; b; b = b->next_)
        if (b->inside_.load(std::memory_order_acquire) == &removed) {
            b->is_use_counted_ = true;
            removed.count_use();
        }
}

} // namespace zel::event_routing::impl
