// Whom a thread acts for. A thread impersonates when it has taken on a user here
// (also the process's own), or when its effective credentials differ from those
// the process has now, however that came about. A change made to the whole process
// is no impersonation.
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

// Aligned to its size, so that it can be read and written in one step.
struct alignas(8) user_identity {
    std::uint32_t user = 0;
    std::uint32_t group = 0;
};

/// The user of a thread or of the process, or why the system would not say.
struct user_answer {
    std::uint32_t user = 0;
    int failure = 0; ///< the system's error code, 0 for none
};

/// Lets the calling thread act for a user until `revert_to_self`. Returns the
/// system's error code, 0 on success; the thread is as before when it fails.
[[nodiscard]] ZEL_EXPORT int impersonate(const user_identity& whom) noexcept;

/// Whether the calling thread acts for somebody. Costs no system call in a process
/// that may not change its identity.
ZEL_EXPORT bool is_impersonating() noexcept;

ZEL_EXPORT user_answer thread_user() noexcept;
ZEL_EXPORT user_answer process_user() noexcept;

/// Ends every impersonation of the calling thread.
ZEL_EXPORT void revert_to_self() noexcept;

} // namespace zel::platform
