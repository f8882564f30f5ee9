// Sends what is broadcast in this process to the other hosts.
//
// A handler for each exported pattern puts the event into a row and returns; a thread of its own
// takes it from there to the connection, when there is one. So a broadcast never waits for the
// network. The numbers of a path and the order in the row are given under one lock, and what is
// then dropped leaves a gap in the numbers, which everybody who receives the path can see.
#pragma once

#include "libraries/nats_bridge/bounded_row.h"
#include "libraries/nats_bridge/connection.h"
#include "libraries/nats_bridge/counters.h"
#include "libraries/nats_bridge/envelope.h"
#include "libraries/nats_bridge/lost_events.h"

#include <event_routing/client.h>

#include <platform/critical_section.h>
#include <platform/event.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zel::event_routing::nats {

class event_export {
public:
    /// All of these outlive the object. `wake` is set, by whomever, when the connection comes or
    /// goes.
    event_export(const bridge_options& options, const std::string& origin, IModule& module,
                 connection& network, platform::event& wake, lost_events& lost, counters& counts);
    ~event_export();
    event_export(const event_export&) = delete;
    event_export& operator=(const event_export&) = delete;

    /// Registers the handlers. What it throws leaves the object to be ended.
    void begin();

    /// Takes no more events and sends those that wait, for so long at most.
    void end(platform::milliseconds limit);

private:
    struct waiting_event {
        std::string channel;
        event_envelope envelope;
    };

    void take(const std::string& channel, const std::string& paths, const event_data& data,
              const routing_parameters& about);
    void number_paths(waiting_event& event) ZEL_REQUIRES(guard_);
    void send_all();
    std::optional<waiting_event> next();
    bool send(const waiting_event& event);
    bool not_sent(const waiting_event& event);

    const bridge_options& options_;
    const std::string origin_;
    IModule& module_;
    connection& network_;
    platform::event& wake_;
    lost_events& lost_;
    counters& counts_;
    platform::event sent_{platform::reset_mode::manual, true}; // set while nothing waits
    platform::critical_section guard_; // between broadcasts and the thread that sends
    bounded_row<waiting_event> row_ ZEL_GUARDED_BY(guard_);
    // By channel and path.
    std::map<std::pair<std::string, std::string>, std::uint64_t> numbers_ ZEL_GUARDED_BY(guard_);
    std::uint64_t number_ ZEL_GUARDED_BY(guard_) = 0;
    bool is_ending_ ZEL_GUARDED_BY(guard_) = false;
    std::vector<std::shared_ptr<tasklib::keep_registered>> handlers_;
    std::thread sender_;
};

} // namespace zel::event_routing::nats
