// One connection to the servers: the only file that knows libnats is its source.
//
// It reconnects without end and never keeps for later what is published while no server is
// there: that would be executed at a moment when nobody wants it any more. Handlers are called on
// threads of libnats, those of one connection that sends in batches one at a time in the order of
// arrival. They must neither block nor run code of others.
#pragma once

#include <event_routing/nats_bridge.h>

#include <platform/timeout.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace zel::event_routing::nats {

/// What came along a subject; valid during the call.
struct received_message {
    std::string_view subject;
    std::string_view answer_to; ///< where an answer is sent, empty when none is wanted
    std::span<const std::uint8_t> bytes;
    bool nobody = false; ///< instead of an answer: nobody listens to what was published
};

enum class sending { in_batches, at_once };

enum class publish_result {
    sent,
    not_connected, ///< nothing was sent, and nothing will be
    broken,        ///< the connection broke: it may have been sent
    too_large,     ///< for the server; nothing was sent
};

class connection {
public:
    using message_handler = std::function<void(const received_message&)>;

    /// Begins to connect. `on_change` is called whenever the connection has come (true) or gone.
    /// Throws exceptions::error for options that libnats does not take.
    connection(const bridge_options& options, const std::string& origin, sending mode,
               std::function<void(bool has_come)> on_change);
    /// Closes it if need be.
    ~connection();
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    bool is_connected() const noexcept;

    /// Throws exceptions::error for what libnats refuses.
    publish_result publish(const std::string& subject, std::string_view bytes,
                           const std::string& answer_to = {});

    /// Throws exceptions::error. There is no unsubscribing but the end of the connection. Of the
    /// subscriptions of all hosts that name the same group one gets a message.
    void subscribe(const std::string& subject, message_handler handler,
                   const std::string& group = {});

    /// Whether the server has answered to all that was sent so far.
    bool flush(platform::milliseconds limit);

    /// Takes nothing new and has what was received handled, for so long at most. What is
    /// published is sent all the same.
    void stop_receiving(platform::milliseconds limit);

    /// Takes nothing new, has what was received handled and what was published sent, for so long
    /// at most, and closes. No handler runs afterwards. Once.
    void close(platform::milliseconds limit);

private:
    struct state;
    std::shared_ptr<state> state_;
};

} // namespace zel::event_routing::nats
