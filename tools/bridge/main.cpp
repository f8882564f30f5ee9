// A host for components without one: loads them, and connects them with those of other processes.
#include "framework/exceptions/exceptions.h"
#include "tools/bridge/command_line.h"
#include "tools/inspect/command_line.h"
#include "tools/inspect/output.h"
#include "tools/inspect/printable.h"

#include <event_routing/nats_bridge.h>

#include <platform/crash_report.h>
#include <platform/interrupt.h>

#include <cstdio>
#include <exception>

namespace {

using bridge_program::command_line;
namespace nats = zel::event_routing::nats;
using zel::platform::interrupt_watch;

enum exit_code { done = 0, failed = 1, bad_request = 2 };

void say(const std::string& text) {
    std::fprintf(stderr, "event_routing_bridge: %s\n", inspect::printable_message(text).c_str());
}

int complain(exit_code code, const std::string& text) {
    say(text);
    return code;
}

// Says when it is ready, and once when that takes long.
void wait_until_ready(nats::bridge& bridge, zel::platform::event& end) {
    constexpr std::chrono::seconds look{1}; // at most so long a request to end goes unseen
    constexpr int soon = 5;
    for (int looks = 0; !end.wait(zel::platform::milliseconds(0)); ++looks) {
        if (bridge.wait_until_ready(look)) {
            inspect::print("ready\n");
            return;
        }
        if (looks == soon)
            say("there is no connection to a server yet; it is looked for further on");
    }
}

int run(const command_line& asked, const nats::bridge_options& options) {
    if (asked.only_check) {
        inspect::print(inspect::printable_message(nats::describe(options)));
        return done;
    }
    interrupt_watch interrupt; // before components start threads
    // In this order, so that nothing comes while they are not there yet, or no more.
    const inspect::host components(asked.components);
    nats::bridge to_the_others(options);
    wait_until_ready(to_the_others, interrupt.requested());
    interrupt.requested().wait();
    return done;
}

} // namespace

int main(int argc, char** argv) {
    try {
        zel::platform::report_crashes("event_routing_bridge");
        inspect::take_output();
        const auto asked = command_line::parse({argv + (argc > 0), argv + argc});
        if (!asked.answer.empty()) {
            inspect::print(asked.answer);
            return done;
        }
        nats::bridge_options options;
        try {
            options = nats::read_configuration(asked.configuration);
        } catch (const zel::exceptions::error& fault) {
            return complain(bad_request, fault.what());
        }
        return run(asked, options);
    } catch (const inspect::usage_error& fault) {
        return complain(bad_request, std::string(fault.what()) + "; --help shows the usage");
    } catch (const std::exception& failure) {
        return complain(failed, failure.what());
    }
}
