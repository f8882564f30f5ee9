#include "framework/event_routing/src/event_routing/events/broadcast_records.h"

#include <platform/diagnostics.h>

#include <algorithm>
#include <array>
#include <utility>

namespace zel::event_routing::impl {

const remembered_list* broadcast_records::recall(broadcast_under_way& broadcast,
                                                 std::uint64_t generation) noexcept {
    const auto thread = std::this_thread::get_id();
    platform::scoped_lock inside(guard_);
    broadcast.thread_ = thread;
    under_way_.enter(broadcast);
    return broadcast.borrowed_ = lists_.borrow(broadcast.paths_, generation);
}

// A list that comes while the table grows is made anew the next time.
void broadcast_records::remember(broadcast_under_way& broadcast,
                                 std::shared_ptr<const remembered_list> list) noexcept {
    remembered_lists::pointer replaced; // goes when the guard is free
    {
        platform::scoped_lock inside(guard_);
        broadcast.own_ = std::move(list);
        if (table_grows_)
            return;
        if (!lists_.is_full()) {
            replaced = lists_.remember(broadcast.own_);
            return;
        }
        table_grows_ = true;
    }
    enlarge_table();
    platform::scoped_lock inside(guard_);
    if (!table_grows_ && !lists_.is_full())
        replaced = lists_.remember(broadcast.own_);
}

// Others look into the table meanwhile, and leave it as it is.
void broadcast_records::enlarge_table() noexcept {
    match_table<remembered_list> other;
    const bool is_made = !platform::guarded([&] { other = lists_.enlarged_table(); });
    platform::scoped_lock inside(guard_);
    if (is_made)
        lists_.swap_table(other);
    table_grows_ = false;
}

void broadcast_records::keep(broadcast_under_way& broadcast,
                             std::shared_ptr<const remembered_list> list) noexcept {
    platform::scoped_lock inside(guard_);
    broadcast.own_ = std::move(list);
}

void broadcast_records::count_uses(registered_handler& removed) noexcept {
    if (may_be_announced_elsewhere(removed)) // just now, that is
        platform::heavy_barrier();
    platform::scoped_lock inside(guard_);
    under_way_.count_uses(removed);
}

bool broadcast_records::is_inside(const registered_handler& handler) const noexcept {
    platform::scoped_lock inside(guard_);
    return under_way_.is_inside(handler);
}

// Broadcasts that have no list yet, or come later, find the handler retired. Others may be
// inside of it only if it stands in their lists, which are looked through without the guard.
bool broadcast_records::may_be_announced_elsewhere(
    const registered_handler& handler) const noexcept {
    // For the few threads that broadcast at once as a rule; where there are more, a fence
    // costs less than to look at all of them.
    std::array<std::shared_ptr<const match_list>, 8> lists;
    {
        platform::scoped_lock inside(guard_);
        if (!under_way_.find_lists_of_others(lists))
            return true;
    }
    return std::ranges::any_of(lists,
                               [&](const auto& list) { return list && list->contains(handler); });
}

void broadcast_records::end_use(broadcast_under_way& broadcast, registered_handler& used) noexcept {
    bool was_counted = false;
    {
        platform::scoped_lock inside(guard_);
        was_counted = std::exchange(broadcast.is_use_counted_, false);
    }
    if (was_counted)
        used.end_use();
}

std::unique_ptr<statistics_data_t>
broadcast_records::UpdateStatistics(broadcast_under_way& broadcast) {
    const coarse_time now;
    std::shared_ptr<const remembered_list> returned; // goes when the guard is free
    platform::scoped_lock inside(guard_);
    under_way_.leave(broadcast);
    if (broadcast.borrowed_)
        returned = broadcast.borrowed_->lent.give_back();
    const remembered_list* const used = broadcast.list();
    counts_.count(broadcast.paths_.text,
                  used && used->lent.is_in_table() ? used : lists_.find(broadcast.paths_));
    return counts_.is_over(now) ? counts_.end() : nullptr;
}

void broadcast_records::hand_back(std::unique_ptr<statistics_data_t> reported) noexcept {
    if (!period_counts::empty(*reported))
        return;
    platform::scoped_lock inside(guard_);
    counts_.hand_back(reported);
}

std::unique_ptr<statistics_data_t> broadcast_records::take_period() {
    platform::scoped_lock inside(guard_);
    return counts_.end();
}

} // namespace zel::event_routing::impl
