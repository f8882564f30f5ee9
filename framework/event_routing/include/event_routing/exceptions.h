// What the routing services themselves throw.
#pragma once

#include <event_routing/routing_parameters.h>

#include <framework/exceptions/exceptions.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zel::event_routing {

namespace detail {

// There is no move, because it would leave an exception empty. The content is shared, so
// that copying cannot throw.
class about_request {
public:
    about_request(const std::string& path, const routing_parameters& parameters)
        : content_(std::make_shared<const content>(content{path, parameters})) {}
    about_request(const about_request&) = default;
    about_request& operator=(const about_request&) = default;

    const std::string& path() const noexcept { return content_->path; }
    const routing_parameters& parameters() const noexcept { return content_->parameters; }

private:
    struct content {
        std::string path;
        routing_parameters parameters;
    };
    std::shared_ptr<const content> content_;
};

} // namespace detail

/// The data type of an answer is not known to the serialization library. The parameters
/// are those that the handler received.
class ZEL_EXPORT data_type_not_registered : public exceptions::error, public detail::about_request {
public:
    /// `kind` is the word the text begins with, "Request" for instance.
    [[gnu::noinline]] data_type_not_registered(const std::string& kind, const std::string& path,
                                               const routing_parameters& parameters,
                                               const std::string& data_type)
        : error(kind + " " + path + ": '" + data_type + "' data type is not registered.",
                __builtin_return_address(0)),
          about_request(path, parameters),
          data_type_(std::make_shared<const std::string>(data_type)) {}
    /// Copied also where it could be moved.
    data_type_not_registered(const data_type_not_registered&) = default;
    /// The same.
    data_type_not_registered& operator=(const data_type_not_registered&) = default;

    /// The name that nobody has registered.
    const std::string& data_type() const noexcept { return *data_type_; }

private:
    std::shared_ptr<const std::string> data_type_; // as in about_request
};

/// A handler that was asked and did not answer.
struct declined_handler {
    std::int32_t level = 0;  ///< subnodes of the handler's registration, the "*" not counted
    std::string description; ///< as it was registered
    /// The type of data that a handler made by typed.h takes, when it declined because the
    /// request had others. Empty when it declined for reasons of its own.
    std::string wanted_type;

    bool operator==(const declined_handler&) const = default;
};

/// Nobody answered a request. The parameters are those that SendRequest was given.
class ZEL_EXPORT request_was_not_processed : public exceptions::error,
                                             public detail::about_request {
public:
    /// The message is the whole text.
    [[gnu::noinline]] request_was_not_processed(const std::string& message, const std::string& path,
                                                const routing_parameters& parameters,
                                                std::vector<declined_handler> declined = {})
        : error(message, __builtin_return_address(0)), about_request(path, parameters),
          declined_(std::make_shared<const std::vector<declined_handler>>(std::move(declined))) {}
    /// Copied also where it could be moved.
    request_was_not_processed(const request_was_not_processed&) = default;
    /// The same.
    request_was_not_processed& operator=(const request_was_not_processed&) = default;

    /// The handlers that were asked, in the order in which they were; empty when nobody
    /// listens to the path. One that comes or goes while the request is under way may be
    /// missing or be listed although its turn had not come.
    const std::vector<declined_handler>& declined() const noexcept { return *declined_; }

private:
    std::shared_ptr<const std::vector<declined_handler>> declined_; // as in about_request
};

/// Two handlers with equal rights answered one request. The parameters are those that both
/// received.
class ZEL_EXPORT multiple_request_handlers : public exceptions::error,
                                             public detail::about_request {
public:
    /// The message is the whole text.
    [[gnu::noinline]] multiple_request_handlers(const std::string& message, const std::string& path,
                                                const routing_parameters& parameters)
        : error(message, __builtin_return_address(0)), about_request(path, parameters) {}
};

} // namespace zel::event_routing
