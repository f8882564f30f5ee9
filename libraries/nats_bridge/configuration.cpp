// Options as a JSON document; docs/bridge.schema.json describes it. Members that nobody reads are
// refused, since they are mistakes as a rule.
#include "framework/exceptions/exceptions.h"
#include "framework/serialization/json_text.h"

#include <event_routing/nats_bridge.h>

#include <json/value.h>
#include <limits>
#include <set>
#include <string_view>
#include <utility>

namespace zel::event_routing::nats {

namespace {

[[noreturn]] void refuse(const std::string& place, const std::string& reason) {
    throw exceptions::error("Configuration" + (place.empty() ? "" : ", " + place) + ": " + reason);
}

void read(const Json::Value& value, const std::string& place, std::string& text) {
    if (!value.isString())
        refuse(place, "a string is expected.");
    text = value.asString();
}

void read(const Json::Value& value, const std::string& place, std::size_t& number) {
    if (!value.isUInt64())
        refuse(place, "a whole number from 0 on is expected.");
    number = value.asUInt64();
}

void read(const Json::Value& value, const std::string& place, std::chrono::milliseconds& time) {
    constexpr auto longest = std::numeric_limits<std::int32_t>::max();
    if (!value.isInt64() || value.asInt64() < 0 || value.asInt64() > longest)
        refuse(place,
               "a number of milliseconds is expected, " + std::to_string(longest) + " at most.");
    time = std::chrono::milliseconds(value.asInt64());
}

template <class Choice, std::size_t Count>
void read_choice(const Json::Value& value, const std::string& place,
                 const std::pair<std::string_view, Choice> (&choices)[Count], Choice& chosen) {
    std::string expected;
    for (const auto& [name, choice] : choices) {
        if (value.isString() && value.asString() == name) {
            chosen = choice;
            return;
        }
        expected += (expected.empty() ? "\"" : ", \"") + std::string(name) + '"';
    }
    refuse(place, "one of " + expected + " is expected.");
}

void read(const Json::Value& value, const std::string& place, request_mode& mode) {
    static constexpr std::pair<std::string_view, request_mode> modes[] = {
        {"owner", request_mode::owner},
        {"any", request_mode::any},
        {"unique", request_mode::unique}};
    read_choice(value, place, modes, mode);
}

void read(const Json::Value& value, const std::string& place, full_row& policy) {
    static constexpr std::pair<std::string_view, full_row> policies[] = {
        {"drop_newest", full_row::drop_newest}, {"drop_oldest", full_row::drop_oldest}};
    read_choice(value, place, policies, policy);
}

template <class Element>
void read(const Json::Value& value, const std::string& place, std::vector<Element>& list);

// The members of one object, each of which is read by its name.
class members {
public:
    members(const Json::Value& object, std::string place)
        : object_(object), place_(std::move(place)) {
        if (!object_.isObject())
            refuse(place_, "an object is expected.");
    }

    template <class Value>
    members& optional(const char* name, Value& value) {
        known_.insert(name);
        if (object_.isMember(name))
            read(object_[name], place_of(name), value);
        return *this;
    }

    template <class Value>
    members& required(const char* name, Value& value) {
        if (!object_.isMember(name))
            refuse(place_, "the member '" + std::string(name) + "' is missing.");
        return optional(name, value);
    }

    void refuse_others() const {
        for (const auto& name : object_.getMemberNames())
            if (!known_.contains(name))
                refuse(place_of(name), "there is no such member.");
    }

private:
    std::string place_of(const std::string& name) const {
        return place_.empty() ? name : place_ + '.' + name;
    }

    const Json::Value& object_;
    const std::string place_;
    std::set<std::string> known_;
};

void read(const Json::Value& value, const std::string& place, event_pattern& events) {
    members of(value, place);
    of.required("pattern", events.pattern).optional("channel", events.channel).refuse_others();
}

void read(const Json::Value& value, const std::string& place, asked_requests& asked) {
    members of(value, place);
    of.required("pattern", asked.pattern).optional("time_out", asked.time_out).refuse_others();
}

void read(const Json::Value& value, const std::string& place, served_requests& served) {
    members of(value, place);
    of.required("pattern", served.pattern).optional("mode", served.mode).refuse_others();
}

void read(const Json::Value& value, const std::string& place, sent_snowballs& sent) {
    members of(value, place);
    of.required("pattern", sent.pattern).optional("time_out", sent.time_out).refuse_others();
}

void read(const Json::Value& value, const std::string& place, served_snowballs& served) {
    members of(value, place);
    of.required("pattern", served.pattern).refuse_others();
}

template <class Element>
void read(const Json::Value& value, const std::string& place, std::vector<Element>& list) {
    if (!value.isArray())
        refuse(place, "an array is expected.");
    list.clear();
    for (Json::ArrayIndex i = 0; i < value.size(); ++i)
        read(value[i], place + "[" + std::to_string(i) + "]", list.emplace_back());
}

} // namespace

bridge_options options_from_json(const std::string& text) {
    const Json::Value document = serialization::json_from_text(text);
    bridge_options options;
    std::string schema; // for editors
    members(document, "")
        .optional("$schema", schema)
        .optional("servers", options.servers)
        .required("realm", options.realm)
        .required("host", options.host)
        .optional("export_events", options.export_events)
        .optional("import_events", options.import_events)
        .optional("ask_requests", options.ask_requests)
        .optional("serve_requests", options.serve_requests)
        .optional("send_snowballs", options.send_snowballs)
        .optional("serve_snowballs", options.serve_snowballs)
        .optional("expected_hosts", options.expected_hosts)
        .optional("most_waiting_requests", options.most_waiting_requests)
        .optional("most_waiting", options.most_waiting)
        .optional("most_waiting_bytes", options.most_waiting_bytes)
        .optional("when_full", options.when_full)
        .optional("ca_file", options.ca_file)
        .optional("certificate_file", options.certificate_file)
        .optional("key_file", options.key_file)
        .optional("credentials_file", options.credentials_file)
        .optional("drain_limit", options.drain_limit)
        .refuse_others();
    check(options);
    return options;
}

} // namespace zel::event_routing::nats
