// The same paths in other processes and on other machines, over NATS.
//
//     nats::bridge_options options;
//     options.realm = "plant";                            // hosts of one realm hear each other
//     options.host = "press 4";                           // a name for people
//     options.export_events = {{"press.*"}};              // what others may hear
//     options.import_events = {{"plant.*"}};              // what this process wants to hear
//     nats::bridge to_the_others(options);                // its end delivers what is under way
//     to_the_others.wait_until_ready(5s);
//
// A bridge is a client of the routing library like any other: it registers handlers for what is
// exported, and broadcasts what it imports. Nothing crosses that is not named. Events are delivered
// at most once, those of one host in the order in which it broadcast them, and what was lost on the
// way is told by the event `lost_event`. docs/bridge.md has the promises and how to operate it.
#pragma once

#include <platform/export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing::nats {

/// Parameters that the bridge reads or writes.
namespace parameter {
/// On every message that came over the network: the identifier of the process that sent it, which
/// is new with each start. A message that has it is not exported again.
inline constexpr const char* origin = "event_routing.bridge.origin";
/// Beside it the name of that host.
inline constexpr const char* host = "event_routing.bridge.host";
/// How many bridges a message has crossed. Whoever sends it on copies it; at `most_hops` it ends.
inline constexpr const char* hops = "event_routing.bridge.hops";
/// Of `lost_event`: the path, the channel, and the numbers of the first and the last message on
/// that path that did not come.
inline constexpr const char* lost_path = "path";
inline constexpr const char* lost_channel = "channel"; ///< see there
inline constexpr const char* lost_from = "from";       ///< see there
inline constexpr const char* lost_to = "to";           ///< see there
} // namespace parameter

/// Bridges that a message may cross.
inline constexpr std::int64_t most_hops = 8;

/// Broadcast on the default event service where it is found out that events were lost: on the host
/// that could not send them, and on each that did not receive them.
inline constexpr const char* lost_event = "event_routing.bridge.lost";

/// Events of one event service.
struct event_pattern {
    std::string pattern; ///< as for a handler: "a.b", "a.*", "*"
    std::string channel; ///< the name of a named event service; empty for the default one
};

/// What becomes of an event when as many wait as may.
enum class full_row {
    drop_newest, ///< the event itself
    drop_oldest, ///< those that have waited longest
};

/// What a bridge is made of. A pattern may not overlap with another one of the same list and
/// channel, since a message that both are reached by would cross twice.
struct bridge_options {
    /// One server or several of one cluster.
    std::vector<std::string> servers{"nats://127.0.0.1:4222"};
    /// Hosts of different realms do not hear each other.
    std::string realm;
    /// Names this host to people, in failures and in the log of others.
    std::string host;

    std::vector<event_pattern> export_events;
    std::vector<event_pattern> import_events;

    /// Events that wait to be sent, and as many that were received from one origin and wait to be
    /// broadcast. Beyond either limit the policy decides; what it drops is told as lost.
    std::size_t most_waiting = 65'536;
    std::size_t most_waiting_bytes = std::size_t(64) << 20; ///< see there
    full_row when_full = full_row::drop_newest;             ///< see there

    /// Of the certificates of servers, in PEM. Not empty: the connection is encrypted.
    std::string ca_file;
    std::string certificate_file; ///< of this host, with its key
    std::string key_file;         ///< see there
    std::string credentials_file; ///< what the server tells users apart by

    /// How long the end of the bridge waits for what is under way.
    std::chrono::milliseconds drain_limit{5000};
};

/// Throws exceptions::error, which names the member's place ("import_events[1].pattern"), for
/// options that no bridge can be made of.
ZEL_EXPORT void check(const bridge_options& options);

/// What has happened since the bridge was made.
struct bridge_counts {
    std::uint64_t events_sent = 0;
    std::uint64_t events_received = 0;
    std::uint64_t events_not_sent = 0; ///< dropped here: no room, too large, too many hops
    std::uint64_t events_lost = 0;    ///< of others, found missing here or dropped for want of room
    std::uint64_t events_refused = 0; ///< received, and no envelope or of an unknown type
};

class bridge_body;

/// A host's connection to the others of its realm. Any thread may call its operations. It is
/// destroyed outside of handlers and tasks, since its end waits for those that it runs.
class ZEL_EXPORT bridge {
public:
    /// Begins to connect, and registers the handlers for what is exported. The server need not
    /// be there. Throws what `check` throws, and exceptions::error for a file of certificates or
    /// credentials that cannot be read.
    explicit bridge(bridge_options options);
    /// Takes nothing more out of the process or in, delivers what waits in either direction, for
    /// as long as the limit allows, and closes the connections.
    ~bridge();
    bridge(const bridge&) = delete;
    bridge& operator=(const bridge&) = delete;

    /// Whether within that time the bridge is connected and the server has taken note of what it
    /// imports. From then on nothing that others send is missed.
    [[nodiscard]] bool wait_until_ready(std::chrono::milliseconds limit);

    /// By which others tell this process from an earlier one of the same name.
    const std::string& origin() const noexcept;

    bridge_counts counts() const;

private:
    std::unique_ptr<bridge_body> body_;
};

} // namespace zel::event_routing::nats
