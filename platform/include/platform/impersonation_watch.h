// Finding out cheaply whether foreign code leaves its thread acting for somebody.
//
// A thread may change its credentials by a raw system call, of which nobody is told, and
// asking for them is a system call itself. Two thoughts save most of these calls. Code
// that took less time than any system call takes has made none. And on a thread that runs
// foreign code only under watches, what one watch found at its end is still true when the
// next one begins.
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

/// Made right before foreign code runs, on the same thread. May be nested.
class ZEL_EXPORT impersonation_watch {
public:
    impersonation_watch() noexcept;
    ~impersonation_watch();
    impersonation_watch(const impersonation_watch&) = delete;
    impersonation_watch& operator=(const impersonation_watch&) = delete;

    /// Whether the thread acts for somebody now and did not in the beginning.
    bool finds_impersonation() noexcept;

private:
    bool own_code_around_;
    bool impersonated_before_;
    bool found_clean_ = false;
    std::uint64_t looked_; // at the beginning or since
};

/// Says that foreign code is about to run outside of any watch.
ZEL_EXPORT void foreign_code_runs() noexcept;

/// A promise: as long as the object lives, the calling thread changes its credentials
/// only where a watch sees it. May stand inside of a watch.
class ZEL_EXPORT own_code_only {
public:
    own_code_only() noexcept;
    ~own_code_only();
    own_code_only(const own_code_only&) = delete;
    own_code_only& operator=(const own_code_only&) = delete;

private:
    bool before_;
};

} // namespace zel::platform
