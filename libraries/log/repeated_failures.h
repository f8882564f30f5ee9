// How often each failure has come, so that one that comes with every message does not fill
// the log.
//
// A failure is known by its text without that of the exception. It is to be shown in full the
// first time; after that its count is, at every power of ten. Room is bounded: where there is
// none for another failure, the owner tells the counts and all begin anew.
#pragma once

#include <platform/critical_section.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zel::log {

/// Any thread may call any operation.
class repeated_failures {
public:
    struct times {
        std::uint64_t come = 0;
        std::uint64_t next_shown = 1;

        /// Whether some have come since the count was shown last.
        bool has_unshown() const noexcept { return come != next_shown / 10; }
    };
    using counts = std::map<std::string, times, std::less<>>;

    /// Counts a failure. Returns its count if that is to be shown, 1 for the failure itself,
    /// else 0; nothing where there is no room, and then nothing is counted. Throws where
    /// memory is short.
    std::optional<std::uint64_t> count(std::string_view failure);

    /// Forgets all, and returns it.
    counts take() noexcept;

private:
    // Both together bound the memory. Texts that begin alike for so long count as one.
    static constexpr std::size_t most_failures = 256;
    static constexpr std::size_t longest_text = 1000;

    platform::plain_lock guard_; // guards the counts; any thread may fail
    counts counts_ ZEL_GUARDED_BY(guard_);
};

} // namespace zel::log
