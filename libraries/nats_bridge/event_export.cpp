#include "libraries/nats_bridge/event_export.h"

#include "framework/log/log_area.h"
#include "libraries/nats_bridge/payload.h"
#include "libraries/nats_bridge/subject.h"

#include <event_routing/drop.h>

#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::event_routing::nats {

namespace {

constexpr log::log_area bridge_log("nats_bridge");
constinit log::source_position cannot_cross("event_routing/libraries/nats_bridge/event_export.cpp",
                                            1);

// Paths that a host counts; whoever makes up ever new ones has the rest sent without a number.
constexpr std::size_t most_numbered_paths = 65'536;

// A connection that has failed says so, and when it is back; only one that took nothing for too
// long may stay.
constexpr platform::milliseconds retry{1000};

std::shared_ptr<IEventRouting> service_of(IModule& module, const std::string& channel) {
    return channel.empty() ? get_event_routing(module) : get_named_event_routing(module, channel);
}

// As the library takes paths apart: empty ones are none.
std::vector<numbered_path> split(const std::string& paths) {
    std::vector<numbered_path> split;
    for (std::size_t begin = 0; begin < paths.size();) {
        const std::size_t end = std::min(paths.find(';', begin), paths.size());
        if (end > begin)
            split.push_back({paths.substr(begin, end - begin), 0});
        begin = end + 1;
    }
    return split;
}

// What it takes in the row, nearly.
std::size_t size_of(const event_envelope& envelope) {
    std::size_t size = sizeof(envelope) + envelope.origin.size() + envelope.parameters.size();
    for (const auto& [path, number] : envelope.paths)
        size += sizeof(numbered_path) + path.size();
    if (envelope.payload)
        size += envelope.payload->type.size() + envelope.payload->bytes.size();
    return size;
}

} // namespace

event_export::event_export(const bridge_options& options, const std::string& origin,
                           IModule& module, connection& network, platform::event& wake,
                           lost_events& lost, counters& counts)
    : options_(options), origin_(origin), module_(module), network_(network), wake_(wake),
      lost_(lost), counts_(counts), row_(options) {}

void event_export::begin() {
    sender_ = std::thread([this] { send_all(); });
    for (const auto& [pattern, channel] : options_.export_events)
        handlers_.push_back(
            service_of(module_, channel)
                ->RegisterEventHandler(
                    nullptr, pattern,
                    [this, in = channel](const std::string& paths, const event_data& data,
                                         const routing_parameters& about) {
                        take(in, paths, data, about);
                        return false;
                    },
                    nullptr, "bridge of " + options_.host));
}

event_export::~event_export() {
    end(platform::milliseconds(0));
}

void event_export::end(platform::milliseconds limit) {
    for (auto& handler : handlers_)
        drop_and_wait(handler);
    handlers_.clear();
    sent_.wait(limit);
    {
        platform::scoped_lock inside(guard_);
        is_ending_ = true;
    }
    wake_.set();
    if (sender_.joinable())
        sender_.join();
    platform::scoped_lock inside(guard_);
    while (const auto left = row_.pop())
        not_sent(*left);
}

void event_export::take(const std::string& channel, const std::string& paths,
                        const event_data& data, const routing_parameters& about) {
    const auto hops = number_or(about, parameter::hops, 0);
    if (about.contains(parameter::origin))
        return; // it came over the network
    if (hops >= most_hops)
        return counters::add(counts_.events_not_sent);
    waiting_event event{channel,
                        {origin_, 0, split(paths), static_cast<std::uint8_t>(hops), {}, {}}};
    const auto failure = platform::guarded([&] {
        event.envelope.payload = carry(data);
        event.envelope.parameters = module_.SerializeRoutingParameters(about);
    });
    if (failure) {
        counters::add(counts_.events_not_sent);
        bridge_log.report(log::severity::failed_operation, cannot_cross, failure, [&] {
            return "An event along " + paths + " cannot leave this process.";
        });
        return;
    }
    const std::size_t size = size_of(event.envelope);
    std::vector<waiting_event> dropped;
    {
        platform::scoped_lock inside(guard_);
        number_paths(event);
        // Only then may the thread that sends be asleep for want of events.
        const bool was_empty = row_.empty();
        dropped = row_.push(std::move(event), size);
        if (was_empty && !row_.empty()) {
            sent_.reset();
            wake_.set();
        }
    }
    // This may be inside of a task, with whose cancellation one that we post would go.
    for (const auto& left : dropped)
        if (not_sent(left))
            wake_.set();
}

void event_export::number_paths(waiting_event& event) {
    event.envelope.number = ++number_;
    for (auto& [path, number] : event.envelope.paths) {
        const auto known = numbers_.find({event.channel, path});
        if (known != numbers_.end())
            number = ++known->second;
        else if (numbers_.size() < most_numbered_paths)
            number = numbers_[{event.channel, path}] = 1;
    }
}

void event_export::send_all() {
    std::optional<waiting_event> event;
    for (;;) {
        lost_.tell();
        if (!event)
            event = next();
        if (event && send(*event)) {
            event.reset();
            continue;
        }
        {
            platform::scoped_lock inside(guard_);
            if (is_ending_)
                break;
        }
        wake_.wait(event ? retry : platform::infinite);
    }
    if (event)
        not_sent(*event);
}

std::optional<event_export::waiting_event> event_export::next() {
    platform::scoped_lock inside(guard_);
    if (is_ending_)
        return std::nullopt;
    auto event = row_.pop();
    if (!event)
        sent_.set();
    return event;
}

// False when it has to be tried again once there is a connection. A path along which it was sent
// already is then sent once more, which receivers recognise by the number.
bool event_export::send(const waiting_event& event) {
    bool is_sent = true;
    const auto failure = platform::guarded([&] {
        const std::string bytes = envelope_bytes(event.envelope);
        for (const auto& [path, number] : event.envelope.paths) {
            const std::string subject = subject_of(options_.realm, "e", event.channel, path);
            switch (network_.publish(subject, bytes)) {
            case publish_result::sent:
                break;
            case publish_result::not_connected:
            case publish_result::broken:
                is_sent = false;
                return;
            case publish_result::too_large:
                throw exceptions::error("It has " + std::to_string(bytes.size()) +
                                        " bytes, more than the server takes.");
            }
        }
        counters::add(counts_.events_sent);
    });
    if (failure) {
        not_sent(event);
        bridge_log.report(log::severity::failed_operation, cannot_cross, failure, [&] {
            return "An event along " + event.envelope.paths.front().path + " was not sent.";
        });
    }
    return is_sent;
}

// True when the thread that sends has to be woken, since nobody was to tell of losses before.
bool event_export::not_sent(const waiting_event& event) {
    counters::add(counts_.events_not_sent);
    bool is_first = false;
    for (const auto& [path, number] : event.envelope.paths)
        is_first = lost_.note({origin_, event.channel, path, number, number}) || is_first;
    return is_first;
}

} // namespace zel::event_routing::nats
