// Where a log record comes from: a source file and a number within it.
//
// Both are fixed, so that records stay comparable from release to release: the number is
// not a line of today's file, and a file that was moved goes on under its former path.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

namespace zel::log {

/// Every source path begins with this; the compiler is told to write it in place
/// of the folder the sources were built in.
inline constexpr std::string_view build_root = "event_routing/";

/// First 4 bytes of the MD5 of the path below the build root, in lower case, as 8
/// upper-case hexadecimal digits. Throws std::logic_error for a path outside of it.
using source_identifier = std::array<char, 8>;
source_identifier identify_source(std::string_view source_path);

/// A place in the code that logs. It stands in static storage. Its identifier is computed
/// with the first record that a sink wants.
class source_position {
public:
    constexpr source_position(std::string_view path, int line) noexcept
        : path_(path), line_(line) {}

    int line() const noexcept { return line_; }
    source_identifier identifier();

private:
    std::string_view path_;
    int line_;
    // The digits, or 0 before the first use. Relaxed: every thread that computes
    // them gets the same.
    std::atomic<std::uint64_t> identifier_{0};
};

} // namespace zel::log
