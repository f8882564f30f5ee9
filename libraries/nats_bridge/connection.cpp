#include "libraries/nats_bridge/connection.h"

#include "framework/exceptions/exceptions.h"
#include "framework/log/log_area.h"
#include "libraries/nats_bridge/server_address.h"
#include "libraries/nats_bridge/subject.h"

#include <platform/critical_section.h>
#include <platform/diagnostics.h>
#include <platform/event.h>

#include <algorithm>
#include <limits>
#include <nats/nats.h>
#include <utility>
#include <vector>

namespace zel::event_routing::nats {

namespace {

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position trouble("event_routing/libraries/nats_bridge/connection.cpp", 1);
constinit log::source_position in_the_clear("event_routing/libraries/nats_bridge/connection.cpp",
                                            2);

// A peer that is silent for two of these is given up, so a frozen server is noticed in 15 s.
constexpr std::int64_t ping_interval = 5000; // milliseconds
constexpr int unanswered_pings = 2;
constexpr std::int64_t reconnect_wait = 100;   // milliseconds
constexpr std::int64_t reconnect_jitter = 100; // milliseconds, so that hosts come one by one
// A server that takes nothing for so long must not hold whoever ends the bridge.
constexpr std::int64_t write_deadline = 2000; // milliseconds

void require(natsStatus status, const std::string& what) {
    if (status == NATS_OK)
        return;
    const char* const last = nats_GetLastError(nullptr);
    throw exceptions::error("Bridge: " + what + ": " + natsStatus_GetText(status) +
                            (last && *last ? std::string(" (") + last + ")" : std::string()));
}

struct destroy_options {
    void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
};
struct destroy_message {
    void operator()(natsMsg* message) const { natsMsg_Destroy(message); }
};

void warn_of_clear_text(const bridge_options& options) {
    for (const auto& server : options.servers)
        if (can_be_overheard(options, server))
            bridge_log.announce(log::severity::failed_operation, in_the_clear, [&] {
                return "The connection to " + without_password(server) +
                       " is not encrypted, and leads beyond this machine.";
            });
}

} // namespace

// Shared with the callbacks of libnats, each of which holds a reference until libnats has said
// that it will not call any more.
struct connection::state {
    explicit state(std::function<void(bool)> changed) : on_change(std::move(changed)) {}

    struct subscription {
        std::shared_ptr<state> owner;
        message_handler handler;
    };

    const std::function<void(bool)> on_change;
    // What may wait for one subscription in libnats: as much as may wait behind it.
    int most_waiting = 0;
    int most_waiting_bytes = 0;
    natsConnection* nats = nullptr;
    std::vector<natsSubscription*> subscriptions;
    platform::critical_section guard;              // of the count
    std::size_t running ZEL_GUARDED_BY(guard) = 0; // subscriptions that may still be called
    platform::event closed{platform::reset_mode::manual, false};
    platform::event quiet{platform::reset_mode::manual, true}; // set while running is 0

    static void message_came(natsConnection*, natsSubscription*, natsMsg* message,
                             void* closure) noexcept {
        const std::unique_ptr<natsMsg, destroy_message> owned(message);
        const char* const reply = natsMsg_GetReply(message);
        const auto* const data = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
        const received_message received{
            natsMsg_GetSubject(message),
            reply ? reply : "",
            {data, static_cast<std::size_t>(natsMsg_GetDataLength(message))},
            natsMsg_IsNoResponders(message)};
        const auto failure =
            platform::guarded([&] { static_cast<subscription*>(closure)->handler(received); });
        if (failure)
            bridge_log.report(log::severity::failed_operation, trouble, failure, [&] {
                return "A message on " + std::string(received.subject) + " was not taken.";
            });
    }

    static void subscription_ended(void* closure) noexcept {
        const std::unique_ptr<subscription> ended(static_cast<subscription*>(closure));
        platform::scoped_lock inside(ended->owner->guard);
        if (--ended->owner->running == 0)
            ended->owner->quiet.set();
    }

    static void connection_came(natsConnection*, void* closure) noexcept {
        static_cast<state*>(closure)->on_change(true);
    }

    static void connection_went(natsConnection*, void* closure) noexcept {
        static_cast<state*>(closure)->on_change(false);
    }

    static void connection_closed(natsConnection*, void* closure) noexcept {
        static_cast<state*>(closure)->closed.set();
    }

    static void failed(natsConnection*, natsSubscription*, natsStatus status, void*) noexcept {
        const auto failure = std::make_exception_ptr(exceptions::error(natsStatus_GetText(status)));
        bridge_log.report(log::severity::failed_operation, trouble, failure,
                          [] { return "A connection of a bridge is in trouble."; });
    }

    void connect(const bridge_options& options, const std::string& origin, sending mode);
};

void connection::state::connect(const bridge_options& options, const std::string& origin,
                                sending mode) {
    const auto limited = [](std::size_t limit) {
        return static_cast<int>(
            std::min<std::size_t>(limit, std::numeric_limits<std::int32_t>::max()));
    };
    most_waiting = limited(options.most_waiting);
    most_waiting_bytes = limited(options.most_waiting_bytes);
    natsOptions* made = nullptr;
    require(natsOptions_Create(&made), "making options");
    const std::unique_ptr<natsOptions, destroy_options> owned(made);
    std::vector<const char*> servers;
    for (const auto& server : options.servers)
        servers.push_back(server.c_str());
    require(natsOptions_SetServers(made, servers.data(), static_cast<int>(servers.size())),
            "servers");
    if (is_encrypted(options)) // libnats does not look at tls:// itself
        require(natsOptions_SetSecure(made, true), "encryption");
    if (!options.ca_file.empty())
        require(natsOptions_LoadCATrustedCertificates(made, options.ca_file.c_str()),
                "ca_file " + options.ca_file);
    if (!options.certificate_file.empty())
        require(natsOptions_LoadCertificatesChain(made, options.certificate_file.c_str(),
                                                  options.key_file.c_str()),
                "certificate_file " + options.certificate_file);
    if (!options.credentials_file.empty())
        require(natsOptions_SetUserCredentialsFromFiles(made, options.credentials_file.c_str(),
                                                        nullptr),
                "credentials_file " + options.credentials_file);
    // The name goes as it is into a line of the protocol, which a quote or a line end would break.
    for (const auto status :
         {natsOptions_SetName(made, token_of(origin).c_str()), natsOptions_SetNoEcho(made, true),
          natsOptions_SetMaxReconnect(made, -1), natsOptions_SetReconnectWait(made, reconnect_wait),
          natsOptions_SetReconnectJitter(made, reconnect_jitter, reconnect_jitter),
          natsOptions_SetReconnectBufSize(made, 1), // nothing is kept for later
          natsOptions_SetPingInterval(made, ping_interval),
          natsOptions_SetMaxPingsOut(made, unanswered_pings),
          natsOptions_SetWriteDeadline(made, write_deadline),
          natsOptions_SetSendAsap(made, mode == sending::at_once),
          // One thread delivers what all subscriptions receive, in the order of arrival.
          natsOptions_UseGlobalMessageDelivery(made, mode == sending::in_batches),
          natsOptions_SetErrorHandler(made, &failed, this),
          natsOptions_SetClosedCB(made, &connection_closed, this),
          natsOptions_SetDisconnectedCB(made, &connection_went, this),
          natsOptions_SetReconnectedCB(made, &connection_came, this),
          natsOptions_SetRetryOnFailedConnect(made, true, &connection_came, this)})
        require(status, "setting options");
    const natsStatus status = natsConnection_Connect(&nats, made);
    if (status != NATS_NOT_YET_CONNECTED)
        require(status, "connecting");
}

connection::connection(const bridge_options& options, const std::string& origin, sending mode,
                       std::function<void(bool)> on_change)
    : state_(std::make_shared<state>(std::move(on_change))) {
    warn_of_clear_text(options);
    state_->connect(options, origin, mode);
}

connection::~connection() {
    close(platform::milliseconds(0));
}

bool connection::is_connected() const noexcept {
    return natsConnection_Status(state_->nats) == NATS_CONN_STATUS_CONNECTED;
}

publish_result connection::publish(const std::string& subject, std::string_view bytes,
                                   const std::string& answer_to) {
    if (!is_connected())
        return publish_result::not_connected;
    const auto most = natsConnection_GetMaxPayload(state_->nats);
    if (most > 0 && bytes.size() > static_cast<std::size_t>(most))
        return publish_result::too_large;
    const auto size = static_cast<int>(bytes.size());
    const natsStatus status =
        answer_to.empty()
            ? natsConnection_Publish(state_->nats, subject.c_str(), bytes.data(), size)
            : natsConnection_PublishRequest(state_->nats, subject.c_str(), answer_to.c_str(),
                                            bytes.data(), size);
    switch (status) {
    case NATS_OK:
        return publish_result::sent;
    case NATS_MAX_PAYLOAD:
        return publish_result::too_large;
    case NATS_INSUFFICIENT_BUFFER: // it has gone since we looked, and keeps nothing for later
    case NATS_CONNECTION_CLOSED:
    case NATS_DRAINING:
        return publish_result::not_connected;
    case NATS_INVALID_ARG:
    case NATS_INVALID_SUBJECT:
    case NATS_NO_MEMORY:
        require(status, "publishing along " + subject);
        break;
    default:
        break;
    }
    return publish_result::broken;
}

void connection::subscribe(const std::string& subject, message_handler handler,
                           const std::string& group) {
    auto made =
        std::make_unique<state::subscription>(state::subscription{state_, std::move(handler)});
    natsSubscription* nats = nullptr;
    require(group.empty()
                ? natsConnection_Subscribe(&nats, state_->nats, subject.c_str(),
                                           &state::message_came, made.get())
                : natsConnection_QueueSubscribe(&nats, state_->nats, subject.c_str(), group.c_str(),
                                                &state::message_came, made.get()),
            "subscribing to " + subject);
    {
        platform::scoped_lock inside(state_->guard);
        state_->subscriptions.push_back(nats);
        ++state_->running;
        state_->quiet.reset();
    }
    natsSubscription_SetPendingLimits(nats, state_->most_waiting, state_->most_waiting_bytes);
    const natsStatus status =
        natsSubscription_SetOnCompleteCB(nats, &state::subscription_ended, made.get());
    made.release(); // NOLINT(bugprone-unused-return-value): libnats gives it back at the end
    require(status, "subscribing to " + subject);
}

bool connection::flush(platform::milliseconds limit) {
    return is_connected() && natsConnection_FlushTimeout(
                                 state_->nats, std::max<std::int64_t>(limit.count(), 1)) == NATS_OK;
}

void connection::stop_receiving(platform::milliseconds limit) {
    std::vector<natsSubscription*> all;
    {
        platform::scoped_lock inside(state_->guard);
        all = state_->subscriptions;
    }
    for (auto* const subscription : all)
        natsSubscription_DrainTimeout(subscription, std::max<std::int64_t>(limit.count(), 1));
    state_->quiet.wait(limit);
}

void connection::close(platform::milliseconds limit) {
    if (!state_->nats)
        return;
    if (limit.count() > 0 && is_connected() &&
        natsConnection_DrainTimeout(state_->nats, limit.count()) == NATS_OK)
        state_->closed.wait(limit);
    natsConnection_Close(state_->nats);
    {
        platform::scoped_lock inside(state_->guard);
        for (auto* const subscription : state_->subscriptions)
            natsSubscription_Destroy(subscription);
        state_->subscriptions.clear();
    }
    // What libnats calls is waited for without a limit: it calls code that may go after this.
    state_->closed.wait();
    state_->quiet.wait();
    natsConnection_Destroy(state_->nats);
    state_->nats = nullptr;
}

} // namespace zel::event_routing::nats
