#include "libraries/nats_bridge/request_export.h"

#include "libraries/nats_bridge/drop_handlers.h"
#include "libraries/nats_bridge/origin.h"

#include <event_routing/exceptions.h>

namespace zel::event_routing::nats {

namespace {

bool is_processed(const std::optional<answer_envelope>& answer) {
    return answer && answer->outcome == static_cast<std::uint8_t>(answer_outcome::processed);
}

} // namespace

request_export::request_export(const bridge_options& options, IModule& module, remote_calls& calls,
                               host_directory& hosts)
    : options_(options), module_(module), calls_(calls), hosts_(hosts) {}

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
    drop_handlers(handlers_, limit, [this] { calls_.end(); });
}

bool request_export::ask(const asked_requests& asked, const std::string& path,
                         const request_data& data, request_answer& response,
                         request_answer& error_response, const routing_parameters& about) {
    if (!remote_calls::may_leave(about))
        return false;
    const platform::milliseconds time_out(
        number_or(about, parameter::time_out, asked.time_out.count()));
    const auto question = calls_.question("Request '" + path + "'", path, data, about, time_out);
    const auto hosts = hosts_.unique_servers(path);
    const auto answer =
        hosts.empty() ? calls_.ask(question, "r", "") : ask_each(question, hosts, about);
    if (!is_processed(answer))
        return false;
    auto read = remote_calls::read(question, answer->response);
    error_response = remote_calls::read(question, answer->error_response);
    response = std::move(read);
    return true;
}

// All of them, one after another, as handlers with equal rights are within a process: a second one
// that answers makes the request fail, and so does one that throws.
std::optional<answer_envelope> request_export::ask_each(const remote_question& question,
                                                        const std::vector<std::string>& hosts,
                                                        const routing_parameters& about) {
    std::optional<answer_envelope> first;
    for (const auto& host : hosts) {
        std::optional<answer_envelope> answer;
        try {
            answer = calls_.ask(question, "r", host);
        } catch (const request_failed& failure) {
            if (!first || failure.happened() != execution::did_not_run)
                throw;
            throw request_failed(std::string(failure.what()) + " Host '" + first->host +
                                     "' has answered before.",
                                 execution::ran);
        }
        if (!answer)
            hosts_.forget(host);
        if (!is_processed(answer))
            continue;
        if (first)
            throw multiple_request_handlers(question.what + " was answered by two hosts: '" +
                                                first->host + "' and '" + answer->host + "'.",
                                            question.envelope.path, about);
        first = std::move(answer);
    }
    return first;
}

} // namespace zel::event_routing::nats
