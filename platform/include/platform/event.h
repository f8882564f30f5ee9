// Events: a flag that threads wait for.
//
// A manual-reset event wakes every waiter and stays signalled until `reset`; an
// auto-reset event lets exactly one waiter through for each time it is set. A
// waiter may wait for one event or for the first of several. No wait is a
// cancellation point. No thread may wait for an event that is being destroyed;
// the thread that was let through may destroy it at once.
#pragma once

#include <platform/critical_section.h>
#include <platform/export.h>
#include <platform/timeout.h>

#include <cstddef>
#include <optional>
#include <span>

namespace zel::platform {

enum class reset_mode { manual, automatic };

class event {
public:
    constexpr event(reset_mode mode, bool signalled) noexcept
        : mode_(mode), signalled_(signalled) {}
    event(const event&) = delete;
    event& operator=(const event&) = delete;

    ZEL_EXPORT void set() noexcept;
    ZEL_EXPORT void reset() noexcept;

    /// True once signalled, false when the time is over. Zero only looks.
    ZEL_EXPORT bool wait(milliseconds timeout = infinite) noexcept;

private:
    class waiter;
    struct link;
    friend ZEL_EXPORT std::optional<std::size_t> wait_any(std::span<event* const> events,
                                                          milliseconds timeout);

    static bool wait_linked(std::span<event* const> events, std::span<link> links, waiter& self,
                            milliseconds timeout) noexcept;
    bool enlist(link& node) noexcept;
    void leave(link& node) noexcept;
    void push(link& node) noexcept ZEL_REQUIRES(guard_);
    void unlink(link& node) noexcept ZEL_REQUIRES(guard_);

    plain_lock guard_; // guards the flag and the list; held for a few steps only
    reset_mode mode_;
    bool signalled_ ZEL_GUARDED_BY(guard_);
    link* first_ ZEL_GUARDED_BY(guard_) = nullptr; // longest waiting first
    link* last_ ZEL_GUARDED_BY(guard_) = nullptr;
};

/// Waits for the first of the events; its index, or nothing when the time is
/// over. An auto-reset event is taken only when it is the one returned. Of
/// several that are signalled at the start the first in the list is taken.
ZEL_EXPORT std::optional<std::size_t> wait_any(std::span<event* const> events,
                                               milliseconds timeout = infinite);

} // namespace zel::platform
