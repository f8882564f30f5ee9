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
// way is told by the event `lost_event`. A request that no regular handler has answered is asked
// elsewhere, and either answered or fails with an exception that says whether it was executed.
// docs/bridge.md has the promises and how to operate it.
#pragma once

#include <framework/exceptions/exceptions.h>

#include <platform/export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
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
/// On a request: how many milliseconds the sender waits for an answer from another host. The host
/// does not begin to execute it later.
inline constexpr const char* time_out = "event_routing.bridge.time_out";
/// On a snowball: the names of hosts that were passed by, since they were silent or refused it.
inline constexpr const char* passed_by = "event_routing.bridge.passed_by";
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

/// Which hosts answer the requests of a pattern. All that serve it name the same one.
enum class request_mode {
    owner,  ///< one host, which claims the pattern when it starts; a second claim is refused
    any,    ///< one of those that serve it, whichever the server chooses
    unique, ///< all that serve it are asked, and at most one may answer
};

/// Requests that other hosts are asked when no regular handler of this process has answered.
struct asked_requests {
    std::string pattern;                      ///< as for a handler
    std::chrono::milliseconds time_out{5000}; ///< unless the request says `time_out`
};

/// Requests that this process answers to other hosts.
struct served_requests {
    std::string pattern;                     ///< as for a handler
    request_mode mode = request_mode::owner; ///< see there
};

/// Snowballs that go on to other hosts from this process.
struct sent_snowballs {
    std::string pattern;                      ///< as for a handler
    std::chrono::milliseconds time_out{5000}; ///< for each host; a silent one is passed by
};

/// Snowballs of other hosts to which this process adds.
struct served_snowballs {
    std::string pattern; ///< as for a handler
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

    std::vector<event_pattern> export_events;      ///< what others may hear
    std::vector<event_pattern> import_events;      ///< what is broadcast here
    std::vector<asked_requests> ask_requests;      ///< see there
    std::vector<served_requests> serve_requests;   ///< see there
    std::vector<sent_snowballs> send_snowballs;    ///< see there
    std::vector<served_snowballs> serve_snowballs; ///< see there
    /// Names of hosts that wait_until_ready waits for.
    std::vector<std::string> expected_hosts;
    /// Requests and snowballs of others that wait for a thread; further ones are refused, and told
    /// so.
    std::size_t most_waiting_requests = 1024;

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

/// What would cross, in lines for people: each pattern with its kind, its direction and its
/// subject, and the servers, without passwords. Throws what `check` throws.
ZEL_EXPORT std::string describe(const bridge_options& options);

/// Options from a JSON file, as docs/bridge.schema.json has it. Throws exceptions::error, which
/// names the file and the member's place, for a file that cannot be read, a member that is unknown,
/// missing or of another kind, and for what `check` throws.
ZEL_EXPORT bridge_options read_configuration(const std::string& file);

/// The environment variable that names the JSON file of a bridge which is loaded as a component
/// (the library event_routing_bridge).
inline constexpr const char* configuration_variable = "EVENT_ROUTING_BRIDGE_CONFIGURATION";

/// What has happened since the bridge was made.
struct bridge_counts {
    std::uint64_t events_sent = 0;     ///< handed to the server
    std::uint64_t events_received = 0; ///< of others, also those refused
    std::uint64_t events_not_sent = 0; ///< dropped here: no room, too large, too many hops
    std::uint64_t events_lost = 0;    ///< of others, found missing here or dropped for want of room
    std::uint64_t events_refused = 0; ///< received, and no envelope or of an unknown type
    std::uint64_t requests_asked = 0; ///< sent to others
    std::uint64_t requests_served = 0;  ///< of others, executed here
    std::uint64_t requests_expired = 0; ///< of others, not executed because it was too late
    std::uint64_t hosts_passed_by = 0;  ///< by snowballs
    std::uint64_t late_answers = 0;     ///< dropped, since the sender waits no more
};

/// Whether a request that failed was executed.
enum class execution {
    did_not_run, ///< it can be sent again
    ran,         ///< to its end or to an exception
    unknown,     ///< the answer is missing: sent again, it may be executed twice
};

/// What a request throws that was to be answered by another host. When nobody serves it or all
/// have declined it fails as it does at home, with request_was_not_processed.
class ZEL_EXPORT request_failed : public exceptions::error {
public:
    /// The message is the whole text.
    [[gnu::noinline]] request_failed(const std::string& message, execution happened)
        : error(message, __builtin_return_address(0)), happened_(happened) {}

    /// Whether the request was executed.
    execution happened() const noexcept { return happened_; }

private:
    execution happened_;
};

/// The handler of another host threw.
class ZEL_EXPORT remote_handler_failed : public request_failed {
public:
    /// The type is as the log of that host would name it.
    [[gnu::noinline]] remote_handler_failed(const std::string& message, std::string host,
                                            std::string type, std::string text)
        : request_failed(message, execution::ran),
          content_(std::make_shared<const content>(
              content{std::move(host), std::move(type), std::move(text)})) {}
    /// Copied also where it could be moved.
    remote_handler_failed(const remote_handler_failed&) = default;
    /// The same.
    remote_handler_failed& operator=(const remote_handler_failed&) = default;

    const std::string& host() const noexcept { return content_->host; } ///< by its name
    const std::string& type() const noexcept { return content_->type; } ///< of what was thrown
    const std::string& text() const noexcept { return content_->text; } ///< its message

private:
    struct content {
        std::string host;
        std::string type;
        std::string text;
    };
    std::shared_ptr<const content> content_; // shared, so that copying cannot throw
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
    /// imports and serves, and has heard of the expected hosts. From then on nothing that others
    /// send is missed. Throws exceptions::error, which names the owner, when another host has
    /// claimed a pattern that this one is to own; all others are served nevertheless.
    [[nodiscard]] bool wait_until_ready(std::chrono::milliseconds limit);

    /// By which others tell this process from an earlier one of the same name.
    const std::string& origin() const noexcept;

    /// Each figure is read by itself while messages go on.
    bridge_counts counts() const;

private:
    std::unique_ptr<bridge_body> body_;
};

} // namespace zel::event_routing::nats
