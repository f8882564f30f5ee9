// Named parameters that steer a routed message: wait for the handlers, number the
// message, and whatever components agree on among themselves.
//
//     routing_parameters parameters;
//     parameters[parameter::synchronous] = 1000; // a number
//     parameters["reason"] = "shutdown";         // a text
//     const auto attempt = number_or(parameters, "attempt", 1);
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace zel::event_routing {

/// A number or a text; a reader asks for the one it expects.
struct routing_parameter_value {
    std::int64_t number = 0; ///< 0 for a text
    std::string text;        ///< empty for a number

    routing_parameter_value() = default;
    /// A number; unsigned ones from 2^63 on become negative.
    template <std::integral Number>
    routing_parameter_value(Number value) : number(static_cast<std::int64_t>(value)) {}
    /// A text.
    routing_parameter_value(std::string value) : text(std::move(value)) {}
    /// A text that ends at the first zero byte.
    routing_parameter_value(const char* value) : text(value) {}
    /// Both at once; in ordinary use one of them is empty.
    routing_parameter_value(std::int64_t n, std::string t) : number(n), text(std::move(t)) {}

    /// Sets the number and empties the text.
    template <std::integral Number>
    routing_parameter_value& operator=(Number value) {
        number = static_cast<std::int64_t>(value);
        text.clear();
        return *this;
    }
    /// Sets the text and the number to 0.
    routing_parameter_value& operator=(std::string value) {
        number = 0;
        text = std::move(value);
        return *this;
    }
    /// The same; the text ends at the first zero byte.
    routing_parameter_value& operator=(const char* value) { return *this = std::string(value); }

    bool operator==(const routing_parameter_value&) const = default;
};

/// Ordered by name, byte by byte. Names are case-sensitive and may hold any byte.
using routing_parameters = std::map<std::string, routing_parameter_value>;

/// The names that the library itself reads or writes. Two of the texts are misspelled: they
/// are what all libraries of a process agree on, and only the constants are spelled right.
namespace parameter {
/// A broadcast waits for the asynchronous parts it has started, for so many milliseconds,
/// or with -1 until they have ended.
inline constexpr const char* synchronous = "synchronous";
/// How many calls a cumulative event stands for.
inline constexpr const char* cumulative_event_count = "cumulative_event_count";
/// The number of a message, and the process that gave it; added while there are monitors.
inline constexpr const char* monitoring_message_id = "monitoring_message_id";
inline constexpr const char* monitoring_message_pid = "monitoring_message_pid"; ///< see there
/// These three steer a request by being there, whatever their value (request_routing.h).
inline constexpr const char* skip_request_fallbacks = "skip_request_fallbacsk";
inline constexpr const char* prefer_local_request_handlers =
    "prefer_local_request_handlers"; ///< see there
inline constexpr const char* suppress_not_processed_exception =
    "supress_not_processed_exception"; ///< see there
/// The number of the session whose handlers are to answer a request.
inline constexpr const char* target_session = "target_session";
} // namespace parameter

/// As target_session: a handler is to answer only for the session that it runs in.
inline constexpr std::int64_t this_session = -3;

/// The number of that name; `otherwise` where there is none, or a text.
inline std::int64_t number_or(const routing_parameters& parameters, const std::string& name,
                              std::int64_t otherwise) {
    const auto found = parameters.find(name);
    if (found == parameters.end())
        return otherwise;
    const auto& [number, text] = found->second;
    return number == 0 && !text.empty() ? otherwise : number;
}

/// The text of that name; `otherwise` where there is none, or a number. An empty text and
/// the number 0 are the same, so each is read as the other.
inline std::string text_or(const routing_parameters& parameters, const std::string& name,
                           std::string otherwise) {
    const auto found = parameters.find(name);
    if (found == parameters.end())
        return otherwise;
    const auto& [number, text] = found->second;
    return number != 0 && text.empty() ? otherwise : text;
}

} // namespace zel::event_routing
