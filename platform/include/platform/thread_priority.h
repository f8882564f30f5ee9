// How urgent the system takes a thread to be. 0 is normal, below is less urgent.
#pragma once

#include <platform/export.h>
#include <platform/thread_id.h>

#include <optional>

namespace zel::platform {

/// Nothing for a thread that does not exist.
ZEL_EXPORT std::optional<int> thread_priority(thread_id thread) noexcept;

/// False where the system refuses; lowering one's own is always granted.
ZEL_EXPORT bool set_thread_priority(thread_id thread, int priority) noexcept;

/// Takes a thread that was put below normal, for processor or for input and
/// output, back to normal. False where the system refuses, which harms nobody.
/// The caller sees to it that the thread does not end meanwhile: thread numbers
/// are used again.
ZEL_EXPORT bool raise_to_normal_priority(thread_id thread) noexcept;

} // namespace zel::platform
