#include "libraries/nats_bridge/request_import.h"

#include "framework/log/log_area.h"
#include "libraries/nats_bridge/payload.h"
#include "libraries/nats_bridge/subject.h"

#include <platform/diagnostics.h>

#include <typeinfo>

namespace zel::event_routing::nats {

namespace {

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position no_answer("event_routing/libraries/nats_bridge/request_import.cpp",
                                         1);

// One host of those that serve a pattern gets a request.
constexpr const char* group = "er";

std::string type_of(const std::exception& failure) {
    return platform::readable_type_name(typeid(failure).name());
}

} // namespace

request_import::request_import(const bridge_options& options, const std::string& origin,
                               IModule& module, connection& network, task_runner& tasks,
                               peer_clocks& clocks, counters& counts)
    : options_(options), origin_(origin), answers_("er." + token_of(options.realm) + ".i."),
      module_(module), network_(network), tasks_(tasks), clocks_(clocks), counts_(counts) {}

void request_import::serve(const std::string& pattern) {
    network_.subscribe(
        subject_of_pattern(options_.realm, "r", "", pattern),
        [this](const received_message& message) { take(message, &request_import::send_request); },
        group);
}

void request_import::serve_alone(const std::string& pattern) {
    network_.subscribe(subject_of_pattern(options_.realm, "r", origin_, pattern),
                       [this](const received_message& message) {
                           take(message, &request_import::send_request_alone);
                       });
}

void request_import::serve_snowballs(const std::string& pattern) {
    network_.subscribe(
        subject_of_pattern(options_.realm, "s", origin_, pattern),
        [this](const received_message& message) { take(message, &request_import::send_snowball); });
}

// On a thread of libnats, so nothing of the process's own runs here.
void request_import::take(const received_message& message, executing execute) {
    auto request = read_envelope<request_envelope>(message.bytes);
    if (read_subject(message.subject).path != request.path)
        throw exceptions::error("The envelope is not of this path.");
    // Elsewhere an answer would be a message that somebody else is taken for the sender of.
    if (!message.answer_to.starts_with(answers_))
        throw exceptions::error("The answer is wanted outside of the realm.");
    std::string answer_to(message.answer_to);
    if (request.origin == origin_ || request.hops >= most_hops)
        return send(
            {static_cast<std::uint8_t>(answer_outcome::declined), options_.host, {}, {}, {}, {}},
            answer_to);
    if (waiting_.fetch_add(1, std::memory_order_relaxed) >= options_.most_waiting_requests) {
        waiting_.fetch_sub(1, std::memory_order_relaxed);
        return send(refusal("too many requests wait"), answer_to);
    }
    tasks_.post([this, execute, asked = std::move(request), to = std::move(answer_to)] {
        waiting_.fetch_sub(1, std::memory_order_relaxed);
        answer(asked, execute, to);
    });
}

void request_import::answer(const request_envelope& request, executing execute,
                            const std::string& answer_to) {
    if (!clocks_.is_wanted(request)) {
        counters::add(counts_.requests_expired);
        return send(refusal("it came too late"), answer_to);
    }
    send(answer_of(request, execute), answer_to);
}

answer_envelope request_import::answer_of(const request_envelope& request, executing execute) {
    answer_envelope answer;
    answer.host = options_.host;
    const auto fail = [&](const std::string& type, const std::string& text) {
        answer.outcome = static_cast<std::uint8_t>(answer_outcome::failed);
        answer.type = type;
        answer.text = text;
    };
    request_data data;
    routing_parameters about;
    try {
        data = uncarry(request.payload);
        about = module_.DeserializeRoutingParameters(request.parameters.data(),
                                                     request.parameters.size());
    } catch (const std::exception& failure) {
        return refusal(failure.what());
    }
    mark_as_imported(about, request.origin, request.hops);
    counters::add(counts_.requests_served);
    try {
        (this->*execute)(request, about, data, answer);
    } catch (const std::exception& failure) {
        fail(type_of(failure), failure.what());
    } catch (...) {
        fail("", exceptions::brief_text(platform::caught_exception()));
    }
    return answer;
}

void request_import::send_request(const request_envelope& request, routing_parameters& about,
                                  const request_data& data, answer_envelope& answer) {
    request_answer response;
    request_answer error_response;
    // An exception would not tell that nobody answers from a handler whose own request nobody does.
    about[event_routing::parameter::suppress_not_processed_exception] = 1;
    if (!get_request_routing(module_)->SendRequest(request.path, data, response, error_response,
                                                   about))
        answer.outcome = static_cast<std::uint8_t>(answer_outcome::declined);
    answer.response = carry(response);
    answer.error_response = carry(error_response);
}

// Where all that serve it are asked, their fallbacks would be several answers to one request.
void request_import::send_request_alone(const request_envelope& request, routing_parameters& about,
                                        const request_data& data, answer_envelope& answer) {
    about[event_routing::parameter::skip_request_fallbacks] = 1;
    send_request(request, about, data, answer);
}

void request_import::send_snowball(const request_envelope& request, routing_parameters& about,
                                   const request_data& data, answer_envelope& answer) {
    snowball_result response = uncarry(request.response);
    snowball_result error_response = uncarry(request.error_response);
    get_snowball_routing(module_)->SendSnowball(request.path, data, response, error_response,
                                                about);
    answer.response = carry(response);
    answer.error_response = carry(error_response);
}

answer_envelope request_import::refusal(const std::string& reason) const {
    return {static_cast<std::uint8_t>(answer_outcome::refused), options_.host, {}, reason, {}, {}};
}

void request_import::send(const answer_envelope& answer, const std::string& answer_to) {
    const std::string bytes = envelope_bytes(answer);
    auto result = network_.publish(answer_to, bytes);
    if (result == publish_result::too_large) {
        answer_envelope instead = refusal("The answer has " + std::to_string(bytes.size()) +
                                          " bytes, more than the server takes.");
        instead.outcome = static_cast<std::uint8_t>(answer_outcome::failed);
        result = network_.publish(answer_to, envelope_bytes(instead));
    }
    if (result != publish_result::sent)
        bridge_log.announce(log::severity::failed_operation, no_answer, [] {
            return "The answer to a request was not sent, because the connection is gone.";
        });
}

} // namespace zel::event_routing::nats
