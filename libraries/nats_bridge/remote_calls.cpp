#include "libraries/nats_bridge/remote_calls.h"

#include "libraries/nats_bridge/payload.h"
#include "libraries/nats_bridge/subject.h"

namespace zel::event_routing::nats {

namespace {

// Throws where an answer has come and says that nothing was answered.
void check_outcome(const std::string& what, const answer_envelope& answer) {
    switch (static_cast<answer_outcome>(answer.outcome)) {
    case answer_outcome::processed:
    case answer_outcome::declined:
        return;
    case answer_outcome::failed:
        throw remote_handler_failed(what + " failed on host '" + answer.host + "': " + answer.text,
                                    answer.host, answer.type, answer.text);
    case answer_outcome::refused:
        throw request_failed(what + " was refused by host '" + answer.host +
                                 "', which has not executed it: " + answer.text,
                             execution::did_not_run);
    }
    throw request_failed(what + " has an answer of an unknown kind.", execution::ran);
}

} // namespace

remote_calls::remote_calls(const bridge_options& options, const std::string& origin,
                           IModule& module, exchange& others, counters& counts)
    : options_(options), origin_(origin), module_(module), others_(others), counts_(counts) {}

bool remote_calls::may_leave(const routing_parameters& about) {
    return !about.contains(parameter::origin) && number_or(about, parameter::hops, 0) < most_hops &&
           number_or(about, event_routing::parameter::target_session, 0) != this_session;
}

remote_question
remote_calls::question(const std::string& what, const std::string& path,
                       const std::shared_ptr<const serialization::IDataHolder>& data,
                       const routing_parameters& about, platform::milliseconds time_out) {
    using nanoseconds = std::chrono::nanoseconds;
    const auto now = steady_clock::now();
    try {
        return {what,
                {origin_,
                 nanoseconds(now.time_since_epoch()).count(),
                 nanoseconds(time_out).count(),
                 static_cast<std::uint8_t>(number_or(about, parameter::hops, 0)),
                 path,
                 module_.SerializeRoutingParameters(about),
                 carry(data),
                 {},
                 {}},
                time_out,
                now + time_out};
    } catch (const std::exception& failure) {
        throw request_failed(what + " cannot leave this process: " + failure.what(),
                             execution::did_not_run);
    }
}

std::optional<answer_envelope> remote_calls::ask(const remote_question& question,
                                                 const std::string& kind,
                                                 const std::string& channel) {
    const auto& what = question.what;
    std::string subject;
    try {
        subject = subject_of(options_.realm, kind, channel, question.envelope.path);
    } catch (const exceptions::error& failure) {
        throw request_failed(what + " cannot leave this process: " + failure.what(),
                             execution::did_not_run);
    }
    const std::string bytes = envelope_bytes(question.envelope);
    counters::add(counts_.requests_asked);
    byte_vector answer;
    switch (others_.ask(subject, bytes, question.deadline, answer)) {
    case asking::answered:
        break;
    case asking::nobody:
        return std::nullopt;
    case asking::not_connected:
        throw request_failed(what + " was not sent: there is no connection.",
                             execution::did_not_run);
    case asking::too_large:
        throw request_failed(what + " was not sent: it has " + std::to_string(bytes.size()) +
                                 " bytes, more than the server takes.",
                             execution::did_not_run);
    case asking::disconnected:
        throw request_failed(what + " was sent, and the connection broke, or the bridge ended, "
                                    "before the answer came.",
                             execution::unknown);
    case asking::late:
        throw request_failed(what + " was not answered within " +
                                 std::to_string(question.time_out.count()) + " ms.",
                             execution::unknown);
    }
    answer_envelope read;
    try {
        read = read_envelope<answer_envelope>(answer);
    } catch (const std::exception& failure) {
        throw request_failed(what +
                                 " was answered, and the answer cannot be read: " + failure.what(),
                             execution::ran);
    }
    check_outcome(what, read);
    return read;
}

std::shared_ptr<serialization::IDataHolder>
remote_calls::read(const remote_question& question, const std::optional<carried_payload>& payload) {
    try {
        return uncarry(payload);
    } catch (const std::exception& failure) {
        throw request_failed(question.what +
                                 " was answered, and the answer cannot be read: " + failure.what(),
                             execution::ran);
    }
}

} // namespace zel::event_routing::nats
