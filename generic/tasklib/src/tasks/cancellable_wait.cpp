#include "generic/tasklib/src/tasks/cancellable_wait.h"

#include "generic/tasklib/src/tasks/task_library.h"

#include <tasklib/cancellation_companions.h>

namespace zel::tasklib {

namespace {

platform::milliseconds whole_milliseconds(threading::universal_timeout timeout) {
    if (timeout.infinite)
        return platform::infinite;
    return platform::milliseconds(timeout.microseconds > 0 ? timeout.microseconds / 1000 : 0);
}

// A companion of the running task; null outside of tasks.
std::shared_ptr<cancellation_companion_ifc> waiting_companion() {
    const auto current = get_this_taskcancellation();
    auto* const source = current ? query<companion_source_ifc>(*current) : nullptr;
    return source ? source->get_companion({}) : nullptr;
}

} // namespace

std::int32_t cancellable_wait(std::span<platform::event* const> events,
                              threading::universal_timeout timeout) {
    const auto limit = whole_milliseconds(timeout);
    const auto companion = waiting_companion();
    if (auto* const waiting = companion ? query<cancellable_wait_ifc>(*companion) : nullptr) {
        const auto count = static_cast<std::uint32_t>(events.size());
        const auto result = waiting->wait(events.data(), count, limit);
        if (result == cancellable_wait_ifc::canceled)
            throw canceled_exception();
        return result;
    }
    const auto signalled = platform::wait_any(events, limit);
    return signalled ? static_cast<std::int32_t>(*signalled) : cancellable_wait_ifc::timed_out;
}

} // namespace zel::tasklib
