#include "libraries/log/repeated_failures.h"

#include <utility>

namespace zel::log {

std::optional<std::uint64_t> repeated_failures::count(std::string_view failure) {
    const std::string_view key = failure.substr(0, longest_text);
    platform::scoped_lock inside(guard_);
    auto known = counts_.find(key);
    if (known == counts_.end()) {
        if (counts_.size() == most_failures)
            return std::nullopt;
        known = counts_.try_emplace(std::string(key)).first;
    }
    times& of_this = known->second;
    if (++of_this.come != of_this.next_shown)
        return 0;
    of_this.next_shown *= 10;
    return of_this.come;
}

repeated_failures::counts repeated_failures::take() noexcept {
    platform::scoped_lock inside(guard_);
    return std::exchange(counts_, {});
}

} // namespace zel::log
