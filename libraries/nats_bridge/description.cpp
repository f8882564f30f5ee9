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

// What goes to one host has its origin, which each start makes anew, in the place of the channel.
std::string subject_to_one_host(const std::string& realm, const char* kind,
                                const std::string& pattern) {
    std::string subject = subject_of_pattern(realm, kind, "", pattern);
    const auto kind_place = subject.find('.', 3) + 1; // behind "er." and the realm
    return subject.replace(subject.find('.', kind_place) + 1, 1, "<origin>");
}

std::string line(const char* direction, const char* kind, const std::string& pattern,
                 const std::string& how, const std::string& subject) {
    return direction + std::string(kind) + quoted(pattern) + how + " as " + subject + '\n';
}

std::string events(const char* direction, const std::string& realm,
                   const std::vector<event_pattern>& patterns) {
    std::string lines;
    for (const auto& [pattern, channel] : patterns)
        lines += line(direction, " event ", pattern,
                      channel.empty() ? "" : " of channel " + quoted(channel),
                      subject_of_pattern(realm, "e", channel, pattern));
    return lines;
}

const char* name_of(request_mode mode) {
    switch (mode) {
    case request_mode::owner:
        return ", as its owner,";
    case request_mode::any:
        return ", as one of any number,";
    case request_mode::unique:
        return ", as the only one that may answer,";
    }
    return "";
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
    for (const auto& [pattern, time_out] : options.ask_requests)
        text += line("out", " request ", pattern,
                     ", answered within " + std::to_string(time_out.count()) + " ms,",
                     subject_of_pattern(realm, "r", "", pattern));
    for (const auto& [pattern, mode] : options.serve_requests)
        text += line("in ", " request ", pattern, name_of(mode),
                     mode == request_mode::unique ? subject_to_one_host(realm, "r", pattern)
                                                  : subject_of_pattern(realm, "r", "", pattern));
    for (const auto& sent : options.send_snowballs)
        text += line("out", " snowball ", sent.pattern, "",
                     subject_to_one_host(realm, "s", sent.pattern));
    for (const auto& served : options.serve_snowballs)
        text += line("in ", " snowball ", served.pattern, "",
                     subject_to_one_host(realm, "s", served.pattern));
    return text;
}

} // namespace zel::event_routing::nats
