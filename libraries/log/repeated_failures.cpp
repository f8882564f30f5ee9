#include "libraries/log/repeated_failures.h"

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

std::vector<std::pair<std::string, std::uint64_t>> repeated_failures::take_unshown() {
    decltype(counts_) taken;
    {
        platform::scoped_lock inside(guard_);
        taken.swap(counts_);
    }
    std::vector<std::pair<std::string, std::uint64_t>> unshown;
    for (const auto& [failure, of_this] : taken)
        if (of_this.come != of_this.next_shown / 10)
            unshown.emplace_back(failure, of_this.come);
    return unshown;
}

} // namespace zel::log
