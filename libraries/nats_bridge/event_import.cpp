#include "libraries/nats_bridge/event_import.h"

#include "framework/log/log_area.h"
#include "libraries/nats_bridge/origin.h"
#include "libraries/nats_bridge/payload.h"
#include "libraries/nats_bridge/subject.h"

#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position not_delivered("event_routing/libraries/nats_bridge/event_import.cpp",
                                             1);

// Each start of a host is one. The one that has been silent for longest is forgotten; should it
// go on nevertheless, a gap right then is not noticed.
constexpr std::size_t most_senders = 1024;
// Paths of one origin whose numbers are remembered, as many as it counts.
constexpr std::size_t most_numbered_paths = 65'536;
// Origins and types whose refusal was told.
constexpr std::size_t most_told = 4096;

} // namespace

event_import::event_import(const bridge_options& options, const std::string& origin,
                           IModule& module, task_runner& tasks, lost_events& lost, counters& counts)
    : options_(options), origin_(origin), module_(module), tasks_(tasks), lost_(lost),
      counts_(counts) {}

void event_import::begin(connection& network) {
    for (const auto& [pattern, channel] : options_.import_events)
        network.subscribe(subject_of_pattern(options_.realm, "e", channel, pattern),
                          [this](const received_message& message) { take(message); });
}

// On a thread of libnats, so nothing of the process's own runs here.
void event_import::take(const received_message& message) {
    received_event event;
    decoded_subject along;
    try {
        along = read_subject(message.subject);
        event.envelope = read_envelope<event_envelope>(message.bytes);
        const auto& paths = event.envelope.paths;
        if (std::none_of(paths.begin(), paths.end(),
                         [&](const auto& one) { return one.path == along.path; }))
            throw exceptions::error("The envelope is not of this path.");
    } catch (...) {
        counters::add(counts_.events_refused);
        throw; // the connection writes it into the log
    }
    if (event.envelope.origin == origin_)
        return;
    if (event.envelope.hops >= most_hops)
        return counters::add(counts_.events_refused);
    event.channel = along.channel;
    keep_imported_paths(event);

    platform::scoped_lock inside(guard_);
    sender& from = sender_of(event.envelope.origin);
    // An event with several paths comes along each of them, one right after the other; and after
    // a reconnect one may come again.
    if (event.envelope.number <= from.number)
        return;
    from.number = event.envelope.number;
    look_for_gaps(from, event);
    const std::string origin = event.envelope.origin;
    for (const auto& dropped : from.row.push(std::move(event), message.bytes.size()))
        for (const auto& [path, number] : dropped.envelope.paths) {
            counters::add(counts_.events_lost);
            lost_.note({origin, dropped.channel, path, number, number});
        }
    lost_.tell();
    if (from.is_served || from.row.empty())
        return;
    from.is_served = true;
    tasks_.post([this, served = senders_.at(origin)] { serve(served); });
}

event_import::sender& event_import::sender_of(const std::string& origin) {
    const auto known = senders_.find(origin);
    if (known == senders_.end() && senders_.size() >= most_senders)
        forget_most_silent();
    auto& from = senders_[origin];
    if (!from)
        from = std::make_shared<sender>(options_);
    from->heard = ++heard_;
    return *from;
}

void event_import::forget_most_silent() {
    auto silent = senders_.begin();
    for (auto other = silent; other != senders_.end(); ++other)
        if (other->second->heard < silent->second->heard)
            silent = other;
    senders_.erase(silent);
}

void event_import::look_for_gaps(sender& from, const received_event& event) {
    for (const auto& [path, number] : event.envelope.paths) {
        if (number == 0)
            continue;
        const auto known = from.numbers.find({event.channel, path});
        if (known == from.numbers.end()) {
            // Those before may have been sent before we listened.
            if (from.numbers.size() < most_numbered_paths)
                from.numbers[{event.channel, path}] = number;
            continue;
        }
        if (number > known->second + 1) {
            counters::add(counts_.events_lost, number - known->second - 1);
            lost_.note({event.envelope.origin, event.channel, path, known->second + 1, number - 1});
        }
        known->second = number;
    }
}

void event_import::keep_imported_paths(received_event& event) const {
    std::erase_if(event.envelope.paths, [&](const auto& one) {
        return std::none_of(options_.import_events.begin(), options_.import_events.end(),
                            [&](const auto& imported) {
                                return imported.channel == event.channel &&
                                       reaches(imported.pattern, one.path);
                            });
    });
}

void event_import::end() {
    std::size_t left = 0;
    {
        platform::scoped_lock inside(guard_);
        for (const auto& [origin, from] : senders_)
            while (from->row.pop())
                ++left;
    }
    if (left > 0)
        bridge_log.announce(log::severity::failed_operation, not_delivered, [&] {
            return "The bridge of " + options_.host + " ends with " + std::to_string(left) +
                   " events of others that found no time to be broadcast.";
        });
}

void event_import::serve(const std::shared_ptr<sender>& from) {
    for (;;) {
        std::optional<received_event> event;
        {
            platform::scoped_lock inside(guard_);
            event = from->row.pop();
            if (!event) {
                from->is_served = false;
                return;
            }
        }
        // What a handler of a strange kind throws must not end the row of its origin.
        if (const auto failure = platform::guarded([&] { broadcast(*event); }))
            bridge_log.report(log::severity::failed_operation, not_delivered, failure, [&] {
                return "An event of " + event->envelope.origin + " was not delivered to all.";
            });
    }
}

void event_import::broadcast(const received_event& event) {
    const auto& envelope = event.envelope;
    std::string paths;
    for (const auto& [path, number] : envelope.paths)
        paths += (paths.empty() ? "" : ";") + path;
    event_data data;
    routing_parameters about;
    try {
        data = uncarry(envelope.payload);
        about = module_.DeserializeRoutingParameters(envelope.parameters.data(),
                                                     envelope.parameters.size());
    } catch (const std::exception& failure) {
        return refuse(event, failure.what());
    }
    mark_as_imported(about, envelope.origin, envelope.hops);
    counters::add(counts_.events_received);
    const auto events = event.channel.empty() ? get_event_routing(module_)
                                              : get_named_event_routing(module_, event.channel);
    events->BroadcastEvent(paths, data, about, nullptr);
}

void event_import::refuse(const received_event& event, const std::string& reason) {
    counters::add(counts_.events_refused);
    const auto& payload = event.envelope.payload;
    {
        platform::scoped_lock inside(guard_);
        if (refused_.size() >= most_told ||
            !refused_.insert(event.envelope.origin + ' ' + (payload ? payload->type : "")).second)
            return;
    }
    const auto failure = std::make_exception_ptr(exceptions::error(reason));
    bridge_log.report(log::severity::failed_operation, not_delivered, failure,
                      [&] { return "Events of " + event.envelope.origin + " are not delivered."; });
}

} // namespace zel::event_routing::nats
