// What every handler that Request makes is inside of, whatever its types: by it the service
// finds out, once a request has failed, who declined because of the type of the data.
//
// Recognised by std::function::target, which compares names where two libraries have the
// class each, so neither is linked to the other.
#pragma once

#include <event_routing/request_routing.h>

#include <string>
#include <string_view>
#include <utility>

namespace zel::event_routing::detail {

class typed_request_handler {
public:
    /// The type that a handler takes if that is not the type of the data; else nothing.
    using find_wanted_type = std::string_view (*)(const request_data& data);

    typed_request_handler(request_handler handler, find_wanted_type wanted_type)
        : handler_(std::move(handler)), wanted_type_(wanted_type) {}

    bool operator()(const std::string& path, const request_data& data, request_answer& response,
                    request_answer& error_response, const routing_parameters& parameters) const {
        return handler_(path, data, response, error_response, parameters);
    }
    std::string_view type_wanted_instead_of(const request_data& data) const {
        return wanted_type_(data);
    }

private:
    request_handler handler_;
    find_wanted_type wanted_type_;
};

} // namespace zel::event_routing::detail
