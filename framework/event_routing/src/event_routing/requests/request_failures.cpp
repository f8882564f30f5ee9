#include "framework/event_routing/src/event_routing/requests/request_failures.h"

namespace zel::event_routing::impl {

namespace {

// Put together as they are, since names and descriptions may hold any byte.
std::string line_about(const request_match& match) {
    return "  " + std::to_string(match.level) + "-" + match.handler->description;
}

// Each entry as "key= text: 'text', number: number".
std::string FormatRoutingParameters(const routing_parameters& parameters) {
    std::string text;
    for (const auto& [key, value] : parameters) {
        if (!text.empty())
            text += "; ";
        text += key + "= text: '" + value.text + "', number: " + std::to_string(value.number);
    }
    return text;
}

} // namespace

void throw_not_processed(const std::string& path, const routing_parameters& parameters,
                         std::vector<declined_handler> declined) {
    throw request_was_not_processed(
        "Request '" + path +
            "' was not processed. Routing parameters: " + FormatRoutingParameters(parameters),
        path, parameters, std::move(declined));
}

void throw_processed_twice(const std::string& path, const routing_parameters& parameters,
                           const request_match& first, const request_match& second) {
    throw multiple_request_handlers("Multiple handler registered for processing of " + path +
                                        " request. Handlers:\n" + line_about(first) + "\n" +
                                        line_about(second) + ".",
                                    path, parameters);
}

} // namespace zel::event_routing::impl
