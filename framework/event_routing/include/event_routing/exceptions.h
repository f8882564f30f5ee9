// What the routing services themselves throw.
#pragma once

#include <event_routing/routing_parameters.h>

#include <framework/exceptions/exceptions.h>

#include <memory>
#include <string>

namespace zel::event_routing {

/// The data type of an answer is not known to the serialization library.
class ZEL_EXPORT data_type_not_registered : public exceptions::error {
public:
    /// `kind` is the word the text begins with, "Request" for instance.
    [[gnu::noinline]] data_type_not_registered(const std::string& kind, const std::string& path,
                                               const routing_parameters& parameters,
                                               const std::string& data_type)
        : error(kind + " " + path + ": '" + data_type + "' data type is not registered.",
                __builtin_return_address(0)),
          about_(std::make_shared<const about>(about{path, parameters, data_type})) {}

    // Copied also where it could be moved, so that none is left empty.
    data_type_not_registered(const data_type_not_registered&) = default;
    data_type_not_registered& operator=(const data_type_not_registered&) = default;

    const std::string& path() const noexcept { return about_->path; }
    const routing_parameters& parameters() const noexcept { return about_->parameters; }
    const std::string& data_type() const noexcept { return about_->data_type; }

private:
    struct about {
        std::string path;
        routing_parameters parameters;
        std::string data_type;
    };
    std::shared_ptr<const about> about_; // shared, so that copying cannot throw
};

} // namespace zel::event_routing
