// What becomes of an exception that a handler throws.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace zel::event_routing::impl {

/// Tells the diagnostic observers of an exception.
void report_exception(const std::exception_ptr& failure) noexcept;

/// Logs a failed synchronous part, and reports its exception the first time that
/// this path and description fail. That memory lasts for the life of the process
/// and grows by one key for each different pair that ever failed.
void synchronous_part_failed(const std::exception_ptr& failure, const std::string& path,
                             std::int32_t level, const std::string& description);

} // namespace zel::event_routing::impl
