#include "libraries/nats_bridge/request_export.h"

#include "libraries/nats_bridge/payload.h"
#include "libraries/nats_bridge/subject.h"

#include <event_routing/drop.h>

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

// Takes what another host says of a request; false when it has declined it.
bool accept(const answer_envelope& answer, const std::string& path, request_answer& response,
            request_answer& error_response) {
    switch (static_cast<answer_outcome>(answer.outcome)) {
    case answer_outcome::processed:
        break;
    case answer_outcome::declined:
        return false;
    case answer_outcome::failed:
        throw remote_handler_failed("Request '" + path + "' failed on host '" + answer.host +
                                        "': " + answer.text,
                                    answer.host, answer.type, answer.text);
    case answer_outcome::refused:
        throw request_failed("Request '" + path + "' was refused by host '" + answer.host +
                                 "', which has not executed it: " + answer.text,
                             execution::did_not_run);
    default:
        throw exceptions::error("it is of an unknown kind");
    }
    auto read = uncarry(answer.response);
    error_response = uncarry(answer.error_response);
    response = std::move(read);
    return true;
}

} // namespace

request_export::request_export(const bridge_options& options, const std::string& origin,
                               IModule& module, exchange& others, counters& counts)
    : options_(options), origin_(origin), module_(module), others_(others), counts_(counts) {}

void request_export::begin() {
    const auto requests = get_request_routing(module_);
    for (const auto& asked : options_.ask_requests)
        handlers_.push_back(requests->RegisterRequestFallbackHandler(
            asked.pattern,
            [this, &asked](const std::string& path, const request_data& data,
                           request_answer& response, request_answer& error_response,
                           const routing_parameters& about) {
                return ask(asked, path, data, response, error_response, about);
            },
            "bridge of " + options_.host));
}

void request_export::end(platform::milliseconds limit) {
    const auto end = steady_clock::now() + limit;
    for (auto& handler : handlers_) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            std::max(end - steady_clock::now(), steady_clock::duration(0)));
        if (drop_within(handler, {false, left.count()}))
            others_.end(); // what waits for an answer waits no more
        drop_and_wait(handler);
    }
    handlers_.clear();
    others_.end();
}

bool request_export::ask(const asked_requests& asked, const std::string& path,
                         const request_data& data, request_answer& response,
                         request_answer& error_response, const routing_parameters& about) {
    if (about.contains(parameter::origin) || number_or(about, parameter::hops, 0) >= most_hops ||
        number_or(about, event_routing::parameter::target_session, 0) == this_session)
        return false;
    const platform::milliseconds time_out(
        number_or(about, parameter::time_out, asked.time_out.count()));
    const auto now = steady_clock::now();
    std::string subject;
    std::string question;
    try {
        subject = subject_of(options_.realm, "r", "", path);
        question = question_bytes(path, data, about, time_out, now);
    } catch (const std::exception& failure) {
        throw request_failed("Request '" + path + "' cannot leave this process: " + failure.what(),
                             execution::did_not_run);
    }
    counters::add(counts_.requests_asked);
    byte_vector answer;
    switch (others_.ask(subject, question, now + time_out, answer)) {
    case asking::answered:
        break;
    case asking::nobody:
        return false;
    case asking::not_connected:
        throw request_failed("Request '" + path + "' was not sent: there is no connection.",
                             execution::did_not_run);
    case asking::too_large:
        throw request_failed("Request '" + path + "' was not sent: it has " +
                                 std::to_string(question.size()) +
                                 " bytes, more than the server takes.",
                             execution::did_not_run);
    case asking::disconnected:
        throw request_failed("Request '" + path +
                                 "' was sent, and the connection broke, or "
                                 "the bridge ended, before the answer came.",
                             execution::unknown);
    case asking::late:
        throw request_failed("Request '" + path + "' was not answered within " +
                                 std::to_string(time_out.count()) + " ms.",
                             execution::unknown);
    }
    try {
        return accept(read_envelope<answer_envelope>(answer), path, response, error_response);
    } catch (const request_failed&) {
        throw;
    } catch (const std::exception& failure) {
        throw request_failed("Request '" + path +
                                 "' was answered, and the answer cannot be read: " + failure.what(),
                             execution::ran);
    }
}

std::string request_export::question_bytes(const std::string& path, const request_data& data,
                                           const routing_parameters& about,
                                           platform::milliseconds time_out,
                                           steady_clock::time_point now) {
    using nanoseconds = std::chrono::nanoseconds;
    return envelope_bytes(request_envelope{
        origin_, nanoseconds(now.time_since_epoch()).count(), nanoseconds(time_out).count(),
        static_cast<std::uint8_t>(number_or(about, parameter::hops, 0)), path,
        module_.SerializeRoutingParameters(about), carry(data)});
}

} // namespace zel::event_routing::nats
