// The check of options: every mistake is found before anything is made.
#include "framework/exceptions/exceptions.h"
#include "libraries/nats_bridge/subject.h"
#include "libraries/nats_bridge/task_runner.h"

#include <event_routing/nats_bridge.h>

namespace zel::event_routing::nats {

namespace {

[[noreturn]] void refuse(const std::string& place, const std::string& reason) {
    throw exceptions::error("Option " + place + ": " + reason);
}

std::string element(const char* list, std::size_t index) {
    return std::string(list) + "[" + std::to_string(index) + "]";
}

void check_name(const char* place, const std::string& name) {
    if (name.empty())
        refuse(place, "a name is missing.");
    if (token_of(name).size() > 200)
        refuse(place, "the name '" + name + "' is too long.");
}

void check_events(const char* list, const std::string& realm,
                  const std::vector<event_pattern>& events) {
    for (std::size_t i = 0; i < events.size(); ++i) {
        const auto& [pattern, channel] = events[i];
        const std::string place = element(list, i) + ".pattern";
        try {
            subject_of_pattern(realm, "e", channel, pattern);
        } catch (const exceptions::error& failure) {
            refuse(place, failure.what());
        }
        if (channel == task_service)
            refuse(element(list, i) + ".channel", "'" + channel + "' is the bridge's own.");
        if (pattern.empty() || pattern.find(';') != pattern.npos)
            refuse(place, "no broadcast reaches '" + pattern + "'.");
        for (std::size_t j = 0; j < i; ++j)
            if (events[j].channel == channel && overlap(events[j].pattern, pattern))
                refuse(place, "'" + pattern + "' overlaps with '" + events[j].pattern + "' of " +
                                  element(list, j) + ", so that events would cross twice.");
    }
}

template <class Requests>
void check_requests(const char* list, const std::string& realm,
                    const std::vector<Requests>& requests) {
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const std::string place = element(list, i) + ".pattern";
        try {
            subject_of_pattern(realm, "r", "", requests[i].pattern);
        } catch (const exceptions::error& failure) {
            refuse(place, failure.what());
        }
        for (std::size_t j = 0; j < i; ++j)
            if (overlap(requests[j].pattern, requests[i].pattern))
                refuse(place, "'" + requests[i].pattern + "' overlaps with '" +
                                  requests[j].pattern + "' of " + element(list, j) +
                                  ", so that two could answer.");
    }
}

} // namespace

void check(const bridge_options& options) {
    if (options.servers.empty())
        refuse("servers", "there is none.");
    for (std::size_t i = 0; i < options.servers.size(); ++i)
        if (options.servers[i].empty())
            refuse(element("servers", i), "the address is empty.");
    check_name("realm", options.realm);
    check_name("host", options.host);
    check_events("export_events", options.realm, options.export_events);
    check_events("import_events", options.realm, options.import_events);
    check_requests("ask_requests", options.realm, options.ask_requests);
    check_requests("serve_requests", options.realm, options.serve_requests);
    for (std::size_t i = 0; i < options.ask_requests.size(); ++i)
        if (options.ask_requests[i].time_out.count() <= 0)
            refuse(element("ask_requests", i) + ".time_out", "it must be positive.");
    check_requests("send_snowballs", options.realm, options.send_snowballs);
    check_requests("serve_snowballs", options.realm, options.serve_snowballs);
    for (std::size_t i = 0; i < options.send_snowballs.size(); ++i)
        if (options.send_snowballs[i].time_out.count() <= 0)
            refuse(element("send_snowballs", i) + ".time_out", "it must be positive.");
    if (options.most_waiting_requests == 0)
        refuse("most_waiting_requests", "at least one request has to find room.");
    if (options.most_waiting == 0)
        refuse("most_waiting", "at least one event has to find room.");
    if (options.most_waiting_bytes == 0)
        refuse("most_waiting_bytes", "at least one event has to find room.");
    if (options.certificate_file.empty() != options.key_file.empty())
        refuse(options.key_file.empty() ? "key_file" : "certificate_file",
               "a certificate and its key belong together.");
    if (options.drain_limit.count() < 0)
        refuse("drain_limit", "it is negative.");
}

} // namespace zel::event_routing::nats
