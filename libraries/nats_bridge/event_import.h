// Broadcasts in this process what other hosts have sent.
//
// Events of one origin are broadcast one at a time in the order in which it sent them; those of
// different origins do not wait for each other. What comes twice is dropped, and a gap in the
// numbers of a path is told as lost.
#pragma once

#include "libraries/nats_bridge/bounded_row.h"
#include "libraries/nats_bridge/connection.h"
#include "libraries/nats_bridge/counters.h"
#include "libraries/nats_bridge/envelope.h"
#include "libraries/nats_bridge/lost_events.h"

#include <event_routing/client.h>

#include <platform/critical_section.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace zel::event_routing::nats {

class event_import {
public:
    /// All of these outlive the object.
    event_import(const bridge_options& options, const std::string& origin, IModule& module,
                 task_runner& tasks, lost_events& lost, counters& counts);
    event_import(const event_import&) = delete;
    event_import& operator=(const event_import&) = delete;

    /// Subscribes. The connection is closed and the tasks have ended before the object goes.
    void begin(connection& network);

    /// After the connection is closed: broadcasts no more but what a task is at, and writes into
    /// the log how many events found no time.
    void end();

private:
    struct received_event {
        std::string channel;
        event_envelope envelope;
    };

    // What is known of one run of another host.
    struct sender {
        explicit sender(const bridge_options& options) : row(options) {}

        std::uint64_t number = 0; // of the latest event
        // Of the latest event by channel and path.
        std::map<std::pair<std::string, std::string>, std::uint64_t> numbers;
        bounded_row<received_event> row;
        bool is_served = false; // a task takes events out of the row
        std::uint64_t heard = 0;
    };

    void take(const received_message& message);
    sender& sender_of(const std::string& origin) ZEL_REQUIRES(guard_);
    void look_for_gaps(sender& from, const received_event& event) ZEL_REQUIRES(guard_);
    void forget_most_silent() ZEL_REQUIRES(guard_);
    void keep_imported_paths(received_event& event) const;
    void serve(const std::shared_ptr<sender>& from);
    void broadcast(const received_event& event);
    void refuse(const received_event& event, const std::string& reason);

    const bridge_options& options_;
    const std::string origin_;
    IModule& module_;
    task_runner& tasks_;
    lost_events& lost_;
    counters& counts_;
    platform::critical_section guard_; // between the thread that receives and the tasks
    std::map<std::string, std::shared_ptr<sender>> senders_ ZEL_GUARDED_BY(guard_); // by origin
    std::uint64_t heard_ ZEL_GUARDED_BY(guard_) = 0;
    std::set<std::string> refused_ ZEL_GUARDED_BY(guard_); // origins and types, told once
};

} // namespace zel::event_routing::nats
