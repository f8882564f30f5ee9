// What the user asked for.
#pragma once

#include "tools/inspect/host.h"

#include <event_routing/enumerate_handlers.h>
#include <event_routing/routing_parameters.h>

#include <platform/timeout.h>

#include <json/value.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace inspect {

enum class command { list, reach, send, watch };

/// The command line is at fault; the text names what is.
class usage_error : public std::runtime_error {
    using runtime_error::runtime_error;
};

struct command_line {
    std::string help; ///< if not empty, to be printed instead of all the rest

    command what = command::list;
    std::string format = "text";
    std::optional<zel::event_routing::enumerate_handlers::handler_type> type;
    std::string path;
    std::optional<std::string> channel;
    std::optional<Json::Value> payload;
    zel::event_routing::routing_parameters parameters;
    std::optional<zel::platform::milliseconds> duration; ///< without one, until interrupted
    zel::platform::milliseconds interval{1000};
    std::size_t rows = 10;
    std::vector<component_source> components; ///< never empty

    /// `arguments` without the program's name. Throws usage_error.
    static command_line parse(const std::vector<std::string>& arguments);
};

} // namespace inspect
