#include "libraries/nats_bridge/snowball_export.h"

#include "framework/log/log_area.h"
#include "libraries/nats_bridge/drop_handlers.h"
#include "libraries/nats_bridge/origin.h"
#include "libraries/nats_bridge/payload.h"

namespace zel::event_routing::nats {

namespace {

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position passed_by("event_routing/libraries/nats_bridge/snowball_export.cpp",
                                         1);

} // namespace

snowball_export::snowball_export(const bridge_options& options, IModule& module,
                                 remote_calls& calls, host_directory& hosts, counters& counts)
    : options_(options), module_(module), calls_(calls), hosts_(hosts), counts_(counts) {}

void snowball_export::begin() {
    const auto snowballs = get_snowball_routing(module_);
    for (const auto& sent : options_.send_snowballs)
        handlers_.push_back(snowballs->RegisterSnowballHandler(
            sent.pattern,
            [this, &sent](const std::string& path, const snowball_data& data,
                          snowball_result& response, snowball_result& error_response,
                          const routing_parameters& about) {
                send(sent, path, data, response, error_response, about);
            },
            "bridge of " + options_.host));
}

void snowball_export::end(platform::milliseconds limit) {
    drop_handlers(handlers_, limit, [this] { calls_.end(); });
}

void snowball_export::send(const sent_snowballs& sent, const std::string& path,
                           const snowball_data& data, snowball_result& response,
                           snowball_result& error_response, const routing_parameters& about) {
    if (!remote_calls::may_leave(about))
        return;
    routing_parameters told = about;
    const platform::milliseconds time_out(
        number_or(about, parameter::time_out, sent.time_out.count()));
    for (const auto& host : hosts_.snowball_servers(path)) {
        auto question = calls_.question("Snowball '" + path + "'", path, data, told, time_out);
        question.envelope.response = carry(response);
        question.envelope.error_response = carry(error_response);
        std::optional<answer_envelope> answer;
        try {
            answer = calls_.ask(question, "s", host);
        } catch (const remote_handler_failed&) {
            throw; // it ends the pass, as it does within a process
        } catch (const request_failed& failure) {
            pass_by(host, told, failure.what());
            continue;
        }
        if (!answer) {
            hosts_.forget(host); // it has gone, and nothing was sent to it
            continue;
        }
        if (answer->outcome == static_cast<std::uint8_t>(answer_outcome::declined))
            continue; // nobody has added to it there, and the answer carries no outputs
        auto read = remote_calls::read(question, answer->response);
        error_response = remote_calls::read(question, answer->error_response);
        response = std::move(read);
    }
}

void snowball_export::pass_by(const std::string& origin, routing_parameters& about,
                              const std::string& reason) {
    counters::add(counts_.hosts_passed_by);
    std::string& names = about[parameter::passed_by].text;
    names += (names.empty() ? "" : ";") + host_of(origin);
    const auto failure = std::make_exception_ptr(exceptions::error(reason));
    bridge_log.report(log::severity::failed_operation, passed_by, failure,
                      [&] { return "A snowball has passed by host '" + host_of(origin) + "'."; });
}

} // namespace zel::event_routing::nats
