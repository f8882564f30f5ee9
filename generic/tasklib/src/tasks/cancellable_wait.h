// Waiting so that cancelling the calling task ends the wait.
#pragma once

#include <framework/threading/universal_timeout.h>
#include <platform/event.h>

#include <cstdint>
#include <span>

namespace zel::tasklib {

/// The index of the first of the events that is signalled, or -1 when the time is
/// over. Throws canceled_exception when the calling task is canceled.
std::int32_t cancellable_wait(std::span<platform::event* const> events,
                              threading::universal_timeout timeout);

} // namespace zel::tasklib
