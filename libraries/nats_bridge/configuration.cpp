#include "libraries/nats_bridge/configuration.h"

#include "libraries/nats_bridge/json_members.h"

namespace zel::event_routing::nats {

template <>
const std::vector<std::pair<const char*, full_row>>& names_of() {
    static const std::vector<std::pair<const char*, full_row>> all{
        {"drop_newest", full_row::drop_newest}, {"drop_oldest", full_row::drop_oldest}};
    return all;
}

template <>
const std::vector<std::pair<const char*, request_mode>>& names_of() {
    static const std::vector<std::pair<const char*, request_mode>> all{
        {"owner", request_mode::owner},
        {"any", request_mode::any},
        {"unique", request_mode::unique}};
    return all;
}

template <>
const members<event_pattern>& members_of() {
    static const members<event_pattern> all{required("pattern", &event_pattern::pattern),
                                            optional("channel", &event_pattern::channel)};
    return all;
}

template <>
const members<asked_requests>& members_of() {
    static const members<asked_requests> all{
        required("pattern", &asked_requests::pattern),
        optional("time_out_milliseconds", &asked_requests::time_out)};
    return all;
}

template <>
const members<served_requests>& members_of() {
    static const members<served_requests> all{required("pattern", &served_requests::pattern),
                                              optional("mode", &served_requests::mode)};
    return all;
}

template <>
const members<sent_snowballs>& members_of() {
    static const members<sent_snowballs> all{
        required("pattern", &sent_snowballs::pattern),
        optional("time_out_milliseconds", &sent_snowballs::time_out)};
    return all;
}

template <>
const members<served_snowballs>& members_of() {
    static const members<served_snowballs> all{required("pattern", &served_snowballs::pattern)};
    return all;
}

namespace {

// By "$schema" a document tells editors which schema it follows.
member<bridge_options> for_editors(const char* name) {
    return {name, false,
            [](bridge_options&, const Json::Value& json, const json_place& place) {
                std::string unused;
                form<std::string>::read(json, place, unused);
            },
            &form<std::string>::schema};
}

} // namespace

template <>
const members<bridge_options>& members_of() {
    using options = bridge_options;
    static const members<options> all{
        for_editors("$schema"),
        optional("servers", &options::servers),
        required("realm", &options::realm),
        required("host", &options::host),
        optional("export_events", &options::export_events),
        optional("import_events", &options::import_events),
        optional("ask_requests", &options::ask_requests),
        optional("serve_requests", &options::serve_requests),
        optional("send_snowballs", &options::send_snowballs),
        optional("serve_snowballs", &options::serve_snowballs),
        optional("expected_hosts", &options::expected_hosts),
        optional("most_waiting_requests", &options::most_waiting_requests),
        optional("most_waiting", &options::most_waiting),
        optional("most_waiting_bytes", &options::most_waiting_bytes),
        optional("when_full", &options::when_full),
        optional("ca_file", &options::ca_file),
        optional("certificate_file", &options::certificate_file),
        optional("key_file", &options::key_file),
        optional("credentials_file", &options::credentials_file),
        optional("drain_limit_milliseconds", &options::drain_limit),
    };
    return all;
}

bridge_options options_of(const Json::Value& document) {
    bridge_options options;
    form<bridge_options>::read(document, json_place(), options);
    return options;
}

Json::Value configuration_schema() {
    return form<bridge_options>::schema();
}

} // namespace zel::event_routing::nats
