// Takes handlers out whose calls may wait for other hosts.
#pragma once

#include <event_routing/drop.h>

#include <platform/timeout.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

namespace zel::event_routing::nats {

/// When calls are left after that time, `hurry` makes them return.
template <class Hurry>
void drop_handlers(std::vector<std::shared_ptr<tasklib::keep_registered>>& handlers,
                   platform::milliseconds limit, Hurry&& hurry) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (auto& handler : handlers) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            std::max(end - std::chrono::steady_clock::now(), std::chrono::nanoseconds(0)));
        if (drop_within(handler, {false, left.count()}))
            hurry();
        drop_and_wait(handler);
    }
    handlers.clear();
}

} // namespace zel::event_routing::nats
