#include "framework/event_routing/src/event_routing/events/remembered_lists.h"

namespace zel::event_routing::impl {

auto remembered_lists::remember(const pointer& list) -> pointer {
    auto [is_remembered, replaced] = table_.remember(list);
    if (is_remembered)
        list->lent.enter_table();
    if (replaced)
        replaced->lent.leave_table(replaced);
    return std::move(replaced);
}

} // namespace zel::event_routing::impl
