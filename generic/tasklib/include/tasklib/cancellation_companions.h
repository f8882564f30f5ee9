// What the cancellation object of a running task can be asked for besides
// cancelling. The object stands for the calling thread's innermost task.
#pragma once

#include <tasklib/cancellation.h>

#include <platform/event.h>

#include <cstdint>
#include <memory>

namespace zel::tasklib {

/// Lets something else share the fate of the running task.
class ZEL_EXPORT cancellation_companion_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"B0A25B53-0D57-47AE-9F3A-3D6C9C0C4A11"};

    /// Cancels what the companion was made for.
    virtual void propagate_cancel() = 0;
};

class ZEL_EXPORT companion_source_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"1FE2FCB4-59D1-47F0-8ABD-EB4A02DD6BE0"};

    /// A companion for `follower`. It does not keep the follower alive. The follower may be
    /// empty, if only the companion's other interfaces are wanted.
    virtual std::shared_ptr<cancellation_companion_ifc>
    get_companion(std::weak_ptr<cancellation_ifc> follower) = 0;
};

/// A companion offers this, too: a wait that ends when the running task is canceled.
class ZEL_EXPORT cancellable_wait_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"2A24C01A-4CDF-4170-AC1E-DA117591F92D"};

    static constexpr std::int32_t timed_out = -1;
    static constexpr std::int32_t canceled = -2;
    static constexpr std::int32_t failed = -3;

    /// The index of the first event that is signalled, or one of the above.
    virtual std::int32_t wait(platform::event* const* events, std::uint32_t count,
                              platform::milliseconds timeout) = 0;
};

/// The cancellation object itself offers this: it knows what its thread must not wait for.
class ZEL_EXPORT wait_exclusion_ifc : public versioned_ifc {
public:
    static constexpr interface_id id{"9D0C5CD1-ABCA-42E8-A863-6AB2DEE80EB4"};

    /// True for every task that the calling thread is inside of: waiting for one
    /// of them would never end.
    virtual bool excludes_from_wait(const cancellation_ifc& candidate) = 0;
};

} // namespace zel::tasklib
