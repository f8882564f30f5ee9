// What a bridge would do, told to people before it does it.
#include "framework/serialization/json_text.h"
#include "libraries/nats_bridge/server_address.h"
#include "libraries/nats_bridge/subject.h"

#include <event_routing/nats_bridge.h>

namespace zel::event_routing::nats {

namespace {

// As in the configuration, so that a line end or a quotation mark in a path shows.
std::string quoted(const std::string& text) {
    return serialization::json_to_text(text);
}

std::string events(const char* direction, const std::string& realm,
                   const std::vector<event_pattern>& patterns) {
    std::string lines;
    for (const auto& [pattern, channel] : patterns)
        lines += direction + std::string(" event ") + quoted(pattern) +
                 (channel.empty() ? "" : " of channel " + quoted(channel)) + " as " +
                 subject_of_pattern(realm, "e", channel, pattern) + '\n';
    return lines;
}

std::string requests(const char* direction, const std::string& realm, const std::string& pattern,
                     const std::string& how) {
    return direction + std::string(" request ") + quoted(pattern) + ", " + how + ", as " +
           subject_of_pattern(realm, "r", "", pattern) + '\n';
}

} // namespace

std::string describe(const bridge_options& options) {
    check(options);
    const std::string& realm = options.realm;
    std::string text = "host " + quoted(options.host) + " of realm " + quoted(realm) + '\n';
    for (const auto& server : options.servers)
        text +=
            "server " + without_password(server) +
            (can_be_overheard(options, server) ? ", not encrypted, and beyond this machine" : "") +
            '\n';
    text += events("out", realm, options.export_events);
    text += events("in ", realm, options.import_events);
    for (const auto& asked : options.ask_requests)
        text += requests("out", realm, asked.pattern,
                         "answered within " + std::to_string(asked.time_out.count()) + " ms");
    for (const auto& served : options.serve_requests)
        text +=
            requests("in ", realm, served.pattern,
                     served.mode == request_mode::owner ? "as its owner" : "as one of any number");
    return text;
}

} // namespace zel::event_routing::nats
