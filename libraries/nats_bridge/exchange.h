// Asks other hosts and waits for what they answer.
//
// Every question has a subject of its own for its answers, below the inbox of this run of the host.
// What comes for a question that nobody waits for any more is counted and dropped.
#pragma once

#include "libraries/nats_bridge/connection.h"
#include "libraries/nats_bridge/counters.h"
#include "libraries/nats_bridge/envelope.h"

#include <platform/critical_section.h>
#include <platform/event.h>

#include <chrono>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zel::event_routing::nats {

using steady_clock = std::chrono::steady_clock;

enum class asking {
    answered,
    nobody,        ///< listens to the subject
    not_connected, ///< it was not sent
    too_large,     ///< it was not sent
    disconnected,  ///< the connection broke, or the bridge ended, before the answer came
    late,          ///< nothing came in time
};

/// Any thread may ask.
class exchange {
public:
    using answer_test = std::function<bool(std::span<const std::uint8_t> answer)>;

    /// All of these outlive the object.
    exchange(const std::string& inbox, connection& network, counters& counts);

    /// Subscribes to the inbox. The connection is closed before the object goes.
    void begin();

    /// The connection broke: fails what waits for an answer.
    void connection_went();

    /// What waits fails as if the connection had broken, and further questions were not sent.
    void end();

    /// Waits for the first answer until the deadline.
    asking ask(const std::string& subject, std::string_view question_bytes,
               steady_clock::time_point deadline, byte_vector& answer);

    /// For several that answer: waits until the deadline for one that decides, and is late, with
    /// the other answers, if none does. `decides` is called on a thread of libnats.
    asking ask_all(const std::string& subject, std::string_view question_bytes,
                   steady_clock::time_point deadline, const answer_test& decides,
                   std::vector<byte_vector>& answers);

private:
    struct question {
        const answer_test& decides;
        platform::event changed{platform::reset_mode::automatic, false};
        asking state = asking::late;
        std::vector<byte_vector> answers{};
    };

    void take(const received_message& message);
    void fail_waiting(bool for_good);

    const std::string inbox_;
    connection& network_;
    counters& counts_;
    platform::critical_section guard_; // between who asks and the threads of libnats
    std::map<std::string, question*> waiting_ ZEL_GUARDED_BY(guard_); // by subject of the answers
    std::uint64_t asked_ ZEL_GUARDED_BY(guard_) = 0;
    bool has_ended_ ZEL_GUARDED_BY(guard_) = false;
};

} // namespace zel::event_routing::nats
