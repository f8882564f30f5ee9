// Sleeping on a word of memory: the one blocking primitive that a backend must
// supply. Locks and events of this layer are built on it.
//
// None of these waits is a cancellation point, so they are safe in destructors.
#pragma once

#include <platform/export.h>
#include <platform/timeout.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace zel::platform {

using wait_deadline = std::optional<std::chrono::steady_clock::time_point>;

/// The moment at which a wait that starts now gives up; none for an infinite one.
ZEL_EXPORT wait_deadline deadline_after(milliseconds timeout) noexcept;

/// Sleeps while the word holds the expected value. May wake without a reason.
/// Returns false when the deadline has passed.
ZEL_EXPORT bool wait_on_address(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                                wait_deadline deadline) noexcept;

/// Wakes one thread that sleeps on the word, or all. The word is not read.
ZEL_EXPORT void wake_one(const std::atomic<std::uint32_t>& word) noexcept;
ZEL_EXPORT void wake_all(const std::atomic<std::uint32_t>& word) noexcept;

} // namespace zel::platform
