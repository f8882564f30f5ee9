// event_routing_bridge: a host for components that have none, and the bridge that connects them
// with others.
#include "libraries/nats_bridge/read_file.h"

#include <event_routing/component_host.h>
#include <event_routing/nats_bridge.h>

#include <platform/interrupt.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

using namespace zel::event_routing;

constexpr const char* usage =
    "usage: event_routing_bridge --config FILE [LIBRARY...]\n"
    "       event_routing_bridge --config FILE --check\n"
    "\n"
    "Loads the components of the libraries and connects them with the other hosts of the\n"
    "realm, until Ctrl-C. docs/bridge.md describes the configuration.\n"
    "\n"
    "  --check  says what would cross, and connects to nobody\n";

enum exit_code { done = 0, failed = 1, bad_request = 2 };

struct command_line {
    std::string config;
    bool is_check = false;
    bool is_help = false;
    std::vector<std::string> libraries;
};

command_line parse(int count, char** arguments) {
    command_line asked;
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        if (argument == "--help")
            asked.is_help = true;
        else if (argument == "--check")
            asked.is_check = true;
        else if (argument == "--config" && i + 1 < count)
            asked.config = arguments[++i];
        else if (argument.starts_with("-"))
            throw std::invalid_argument(argument == "--config" ? "--config names no file"
                                                               : "unknown option " + argument);
        else
            asked.libraries.push_back(argument);
    }
    if (asked.config.empty() && !asked.is_help)
        throw std::invalid_argument("--config FILE is missing");
    return asked;
}

template <class List, class Describe>
void print(const char* title, const List& list, Describe&& describe) {
    for (const auto& one : list)
        std::printf("%-16s %s%s\n", title, one.pattern.c_str(), describe(one).c_str());
}

void print_what_would_cross(const nats::bridge_options& options) {
    std::printf("host %s in realm %s\n", options.host.c_str(), options.realm.c_str());
    const auto channel = [](const auto& events) {
        return events.channel.empty() ? std::string() : " of channel " + events.channel;
    };
    const auto time_out = [](const auto& asked) {
        return ", for " + std::to_string(asked.time_out.count()) + " ms";
    };
    print("exports events", options.export_events, channel);
    print("imports events", options.import_events, channel);
    print("asks requests", options.ask_requests, time_out);
    print("serves requests", options.serve_requests, [](const auto& served) {
        return served.mode == nats::request_mode::owner ? ", as their owner"
               : served.mode == nats::request_mode::any ? std::string(", as any host")
                                                        : std::string(", if no other host answers");
    });
    print("sends snowballs", options.send_snowballs, time_out);
    print("adds to snowballs", options.serve_snowballs, [](auto&) { return std::string(); });
}

int run(const command_line& asked) {
    zel::platform::interrupt_watch interrupt; // before other threads start
    const auto options = nats::options_from_json(nats::read_file(asked.config));
    if (asked.is_check) {
        print_what_would_cross(options);
        return done;
    }
    component_host components;
    for (const auto& library : asked.libraries)
        components.start(library);
    {
        // After the components, so that others find them, and its end comes before theirs.
        const nats::bridge to_the_others(options);
        interrupt.requested().wait();
    }
    components.stop_all();
    return interrupt.exit_code().value_or(done);
}

} // namespace

int main(int count, char** arguments) {
    try {
        const auto asked = parse(count, arguments);
        if (asked.is_help) {
            std::fputs(usage, stdout);
            return done;
        }
        return run(asked);
    } catch (const std::invalid_argument& mistake) {
        std::fprintf(stderr, "event_routing_bridge: %s\n%s", mistake.what(), usage);
        return bad_request;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "event_routing_bridge: %s\n", failure.what());
        return failed;
    }
}
