// Loads components into a process of its own and looks at them from outside, through
// nothing but what the library offers everybody.
#include "framework/serialization/json_text.h"
#include "tools/inspect/command_line.h"
#include "tools/inspect/handler_tree.h"
#include "tools/inspect/host.h"
#include "tools/inspect/output.h"
#include "tools/inspect/printable.h"
#include "tools/inspect/reach.h"
#include "tools/inspect/send.h"
#include "tools/inspect/watch.h"

#include <platform/crash_report.h>
#include <platform/interrupt.h>

#include <cstdio>
#include <exception>
#include <optional>

namespace {

using namespace inspect;
using zel::platform::interrupt_watch;

enum exit_code { done = 0, failed = 1, bad_request = 2 };

int complain(exit_code code, const std::string& text) {
    std::fprintf(stderr, "event_routing_inspect: %s\n", printable_message(text).c_str());
    return code;
}

std::string as_line(const Json::Value& document) {
    return zel::serialization::json_to_text(document) + '\n';
}

int list(const host& components, const command_line& asked) {
    const auto services = enumerate_services(components.requests());
    print(asked.format == "json"  ? as_line(tree_as_json(services))
          : asked.format == "dot" ? tree_as_dot(services)
          : asked.format == "svg" ? tree_as_svg(services)
                                  : tree_as_text(services));
    return done;
}

int reach(const host& components, const command_line& asked) {
    auto services = enumerate_services(components.requests());
    if (asked.channel)
        services = {channel_named(services, *asked.channel)};
    std::string text;
    Json::Value documents(Json::arrayValue);
    for (const auto& service : services) {
        if (asked.type && service.type != *asked.type)
            continue;
        text += reach_as_text(service, asked.path);
        documents.append(reach_as_json(service, asked.path));
    }
    print(asked.format == "json" ? as_line(documents) : text);
    return done;
}

int send(const host& components, const command_line& asked) {
    const sent result = send_message(components, asked);
    print(result.answer + '\n');
    return result.failure.empty() ? done : complain(failed, result.failure);
}

int run(const host& components, const command_line& asked,
        std::optional<interrupt_watch>& interrupt) {
    switch (asked.what) {
    case command::list:
        return list(components, asked);
    case command::reach:
        return reach(components, asked);
    case command::send:
        return send(components, asked);
    case command::watch:
        watch_traffic(components, asked, interrupt->requested());
    }
    return done;
}

// "payload", "payload.device" or "payload[2].name".
std::string place_in_payload(const zel::serialization::conversion_error& failure) {
    const std::string& place = failure.place();
    return (place.empty() || place.starts_with('[') ? "payload" : "payload.") + place;
}

// What a handler throws is code of a component: it is told, and gone, while that is loaded.
int run_and_tell(const host& components, const command_line& asked,
                 std::optional<interrupt_watch>& interrupt) {
    try {
        return run(components, asked, interrupt);
    } catch (const usage_error& fault) {
        return complain(bad_request, fault.what());
    } catch (const zel::serialization::conversion_error& failure) {
        return complain(failed, place_in_payload(failure) + ": " + failure.what());
    } catch (...) {
        return complain(failed, zel::exceptions::brief_text(std::current_exception()));
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        zel::platform::report_crashes("event_routing_inspect");
        take_output();
        const auto asked = command_line::parse({argv + (argc > 0), argv + argc});
        if (!asked.help.empty()) {
            print(asked.help);
            return done;
        }
        std::optional<interrupt_watch> interrupt; // before components start threads
        if (asked.what == command::watch)
            interrupt.emplace();
        const host components(asked.components);
        return run_and_tell(components, asked, interrupt);
    } catch (const usage_error& fault) {
        return complain(bad_request, std::string(fault.what()) + "; --help shows the usage");
    } catch (const std::exception& failure) {
        return complain(failed, failure.what());
    }
}
