// Finding out cheaply whether foreign code leaves its thread acting for somebody.
//
// Nothing tells that a thread has changed its credentials by a raw system call, and
// asking is a system call itself. But a stretch of code that took less time than any
// system call takes made none, and on a thread that runs foreign code only under
// watches, what the last one found is still true when the next one begins.
#pragma once

#include <platform/export.h>

#include <cstdint>

namespace zel::platform {

/// Begins with the foreign code, on its thread. May be nested.
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

/// Foreign code is about to run that no watch sees.
ZEL_EXPORT void foreign_code_runs() noexcept;

/// For as long as it lives, the calling thread changes its credentials under
/// watches only. May stand inside of a watch.
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
