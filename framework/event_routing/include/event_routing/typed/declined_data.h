// How a typed handler tells that it passes a message over because of the type of its data.
#pragma once

#include <framework/serialization/data_holder.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace zel::event_routing::detail {

/// Part of every typed handler; a copy of the handler has one of its own. Any thread.
class declined_data_log {
public:
    declined_data_log() noexcept = default;
    declined_data_log(const declined_data_log&) noexcept {}
    declined_data_log& operator=(const declined_data_log&) = delete;

    /// Writes a record with severity 0, unless this handler has written one within the last
    /// second. Never fails.
    void tell(const std::string& path, std::string_view wanted_type,
              const std::shared_ptr<const serialization::IDataHolder>& data) noexcept;

private:
    // On the clock that stands still while the machine sleeps. Relaxed: nothing else hangs
    // on it. Written once a second, so that threads whose messages are declined read it side
    // by side.
    std::atomic<std::int64_t> silent_until_{std::numeric_limits<std::int64_t>::min()};
};

} // namespace zel::event_routing::detail
