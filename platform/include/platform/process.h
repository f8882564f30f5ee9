// The running process: its number, pausing a thread, what its output is.
#pragma once

#include <platform/export.h>
#include <platform/timeout.h>

#include <cstdint>
#include <cstdio>

namespace zel::platform {

/// The process's number. Cached, right again after a fork.
ZEL_EXPORT std::uint32_t process_id() noexcept;

/// Pauses the calling thread. Not a cancellation point.
ZEL_EXPORT void sleep_for(milliseconds duration) noexcept;

/// Inside a loop that looks for what another core is about to do: lets the processor
/// attend to something else for some ten nanoseconds.
inline void pause_processor() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

/// For a program that runs libraries of others and whose output is read by a program:
/// returns a stream to where standard output leads, which stays open, and turns standard
/// output into standard error for everybody else, line by line. Once, before other threads
/// are started. Throws std::system_error.
ZEL_EXPORT std::FILE* take_standard_output();

/// Whether a person reads what is written to the stream.
ZEL_EXPORT bool is_terminal(std::FILE* stream) noexcept;

} // namespace zel::platform
