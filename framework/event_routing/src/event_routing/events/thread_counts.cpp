#include "framework/event_routing/src/event_routing/events/thread_counts.h"

namespace zel::event_routing::impl {

// False when there is no room.
bool thread_counts::append(std::uint32_t runs, std::string_view paths,
                           std::uint32_t credit) noexcept {
    const std::uint32_t begin = runs == 0 ? 0 : runs_[runs - 1].begin + runs_[runs - 1].length;
    if (runs == runs_.size() || paths.size() > texts_.size() - begin)
        return false;
    paths.copy(texts_.data() + begin, paths.size());
    runs_[runs] = {begin, static_cast<std::uint32_t>(paths.size()), credit};
    return true;
}

// For a text of that length, unless even the largest row has no room for it. While the row is
// empty. Throws std::bad_alloc.
void thread_counts::make_room(std::size_t length) {
    const auto larger = 2 * runs_.size();
    if (larger > most_runs || length > most_runs * bytes_per_run)
        return;
    std::vector<char> texts(larger * bytes_per_run);
    runs_ = std::vector<run>(larger);
    texts_ = std::move(texts);
}

} // namespace zel::event_routing::impl
