// Named parameters that steer a routed message: wait for the handlers, number the
// message, and whatever components agree on among themselves.
//
//     routing_parameters parameters;
//     parameters["synchronous"] = 1000;   // a number
//     parameters["reason"] = "shutdown";  // a text
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

} // namespace zel::event_routing
