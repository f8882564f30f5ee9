// Which other hosts are there, and what each of them serves.
//
// Every host says hello: when it starts, when another one asks who is there, and every two seconds;
// its end says goodbye. Who is not heard for ten seconds, or has no subscription any more, is gone.
#pragma once

#include "libraries/nats_bridge/connection.h"
#include "libraries/nats_bridge/envelope.h"

#include <platform/critical_section.h>
#include <platform/event.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace zel::event_routing::nats {

class host_directory {
public:
    /// `changed` is set when a host is heard for the first time. All of these outlive the object.
    host_directory(const bridge_options& options, const std::string& origin, connection& network,
                   platform::event& changed);
    ~host_directory();
    host_directory(const host_directory&) = delete;
    host_directory& operator=(const host_directory&) = delete;

    void begin();
    /// Says goodbye.
    void end();
    /// The connection has come: others may have changed meanwhile.
    void connection_came() noexcept;

    /// The origins of the hosts that serve such requests to each who asks, in order.
    std::vector<std::string> unique_servers(const std::string& path);
    /// The same for snowballs.
    std::vector<std::string> snowball_servers(const std::string& path);
    /// Whether hosts of all these names are there.
    bool has_all(const std::vector<std::string>& names);
    /// It was found out that the host is gone.
    void forget(const std::string& origin);

private:
    using clock = std::chrono::steady_clock;
    struct host {
        hello_envelope said;
        clock::time_point heard;
    };

    void take(const received_message& message);
    void say_hello_again();
    void say(hello_kind kind);

    std::string subject_;
    hello_envelope own_;
    connection& network_;
    platform::event& changed_;
    platform::event wake_{platform::reset_mode::automatic, false};
    platform::critical_section guard_; // between the own thread, those of libnats and who looks
    std::map<std::string, host> hosts_ ZEL_GUARDED_BY(guard_); // by origin
    bool is_ending_ ZEL_GUARDED_BY(guard_) = false;
    bool is_news_ ZEL_GUARDED_BY(guard_) = false; // the connection has come since we asked
    std::thread thread_;
};

} // namespace zel::event_routing::nats
