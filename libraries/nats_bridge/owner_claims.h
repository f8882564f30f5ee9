// Which of the patterns that this host is to own it does own.
//
// There is no register of owners: whoever owns a pattern, or wants to, listens to a subject made of
// it, and whoever wants to asks there first. A host that wants listens before it asks, so of two
// that want the same at once each hears the other, and the one with the smaller origin wins:
//
//     host 1                                  host 2
//     listens                                 listens
//     asks; host 2 gives way                  asks; host 1 refuses
//     owns                                    is refused
//
// To be asked by a smaller origin and to become the owner exclude each other under one lock. Two
// halves of a realm that do not see each other may have an owner each, and so may two hosts one of
// which was suspended while the other claimed; from then on one of the two answers each request.
#pragma once

#include "libraries/nats_bridge/exchange.h"

#include <platform/critical_section.h>
#include <platform/event.h>

#include <functional>
#include <map>
#include <string>
#include <thread>

namespace zel::event_routing::nats {

class owner_claims {
public:
    using serve_pattern = std::function<void(const std::string& pattern)>;

    /// `serve` is called for each pattern that is owned, and `changed` is set when one is owned or
    /// refused. All of these outlive the object.
    owner_claims(const bridge_options& options, const std::string& origin, connection& network,
                 exchange& others, platform::event& changed, serve_pattern serve);
    ~owner_claims();
    owner_claims(const owner_claims&) = delete;
    owner_claims& operator=(const owner_claims&) = delete;

    /// Begins to claim.
    void begin();
    /// Claims no more. The exchange has ended.
    void end();

    /// The connection has come.
    void connection_came() noexcept { wake_.set(); }

    /// Whether each pattern is owned or refused.
    bool are_settled();
    /// What was refused to whom, empty where nothing was.
    std::string refusals();

private:
    enum class stage { wanted, owned, refused };
    struct claim {
        stage reached = stage::wanted;
        bool is_settled = false; ///< refused, or owned and served
        std::string rival;       ///< the origin that has it, or will have it
    };

    std::string subject_of_claim(const std::string& pattern) const;
    void claim_all();
    bool try_claim(const std::string& pattern);
    std::string settle(const std::string& pattern, const std::string& rival);
    void answer(const std::string& pattern, const received_message& message);

    const bridge_options& options_;
    const std::string origin_;
    connection& network_;
    exchange& others_;
    platform::event& changed_;
    const serve_pattern serve_;
    platform::event wake_{platform::reset_mode::automatic, false};
    platform::critical_section guard_; // between the own thread, those of libnats and who looks
    std::map<std::string, claim> claims_ ZEL_GUARDED_BY(guard_); // by pattern
    bool is_ending_ ZEL_GUARDED_BY(guard_) = false;
    std::thread thread_;
};

} // namespace zel::event_routing::nats
