#include <platform/credentials.h>
#include <platform/impersonation_watch.h>

#include <algorithm>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {

namespace {

// Initial-exec and trivially destructible, as the number of a thread is.
struct thread_knowledge {
    bool own_code = false; // no foreign code runs but under a watch
    bool clean = false;    // acted for nobody when it was looked at
};
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_knowledge known;

std::uint64_t ticks() noexcept {
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc(); // 10 ns; a clock takes twice that
#else
    return 0;
#endif
}

// Half the time of the quickest of some system calls, so that no later call is quicker. It
// is zero where there is no counter: then any stretch of code may have made a call.
std::uint64_t quickest_system_call() noexcept {
    std::uint64_t quickest = ~std::uint64_t{0};
    for (int i = 0; i < 50; ++i) {
        const auto began = ticks();
        syscall(SYS_setfsuid, -1); // changes nothing
        quickest = std::min(quickest, ticks() - began);
    }
    return quickest / 2;
}

const std::uint64_t too_short = quickest_system_call();

} // namespace

impersonation_watch::impersonation_watch() noexcept
    : own_code_around_(known.own_code),
      impersonated_before_(!(known.own_code && known.clean) && is_impersonating()) {
    known.own_code = false;
    looked_ = ticks();
}

impersonation_watch::~impersonation_watch() {
    // What has run since the last look, destructors above all, may have begun to act for
    // somebody, too.
    known = {own_code_around_, found_clean_ && ticks() - looked_ < too_short};
}

bool impersonation_watch::finds_impersonation() noexcept {
    if (impersonated_before_)
        return false;
    // A counter that went back, on another core, gives a huge difference.
    const auto now = ticks();
    found_clean_ = now - looked_ < too_short || !is_impersonating();
    looked_ = now;
    return !found_clean_;
}

void foreign_code_runs() noexcept {
    known.clean = false;
}

own_code_only::own_code_only() noexcept : before_(known.own_code) {
    known = {true, false};
}

own_code_only::~own_code_only() {
    known = {before_, false};
}

} // namespace zel::platform
