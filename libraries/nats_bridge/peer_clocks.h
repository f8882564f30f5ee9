// Whether it is still time to execute a request.
//
// A request may lie anywhere on its way: in a buffer, behind a stopped router, in a suspended
// process. It says by its sender's clock when it was sent and until when it is wanted. That clock
// is asked for once in a while: it shows at most what it answered, and the time that has passed
// here since it was asked. What the sender would no longer wait for by that bound is not executed,
// whatever either host takes for the time of day.
#pragma once

#include "libraries/nats_bridge/exchange.h"

#include <platform/critical_section.h>

#include <cstdint>
#include <map>
#include <string>

namespace zel::event_routing::nats {

class peer_clocks {
public:
    peer_clocks(const std::string& realm, exchange& others) : realm_(realm), others_(others) {}

    /// The subject along which a host is asked for its clock.
    static std::string subject(const std::string& realm, const std::string& origin);

    /// Whether the sender certainly still waits. Asks it for its clock if need be, and waits for
    /// the answer; false when there is none. Any thread.
    bool is_wanted(const request_envelope& request);

private:
    struct reading {
        std::int64_t shown = 0; ///< nanoseconds of the peer's clock
        steady_clock::time_point asked;
    };

    const std::string realm_;
    exchange& others_;
    platform::critical_section guard_;                               // between tasks
    std::map<std::string, reading> readings_ ZEL_GUARDED_BY(guard_); // by origin
};

} // namespace zel::event_routing::nats
