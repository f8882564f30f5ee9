// One request on its way. Lives on the stack of SendRequest, whose steps and passes are
// the functions of this class.
#pragma once

#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/routing/current_matches.h"

#include <event_routing/exceptions.h>

#include <exception>
#include <optional>
#include <span>
#include <vector>

namespace zel::event_routing::impl {

class RequestRoutingImpl::request {
public:
    request(RequestRoutingImpl& service, const std::string& path, const request_data& data,
            request_answer& response, request_answer& error_response,
            const routing_parameters& parameters)
        : service_(service), names_(service.parameter_names_), data_(data), response_(response),
          error_response_(error_response), callers_parameters_(parameters),
          parameters_(parameters) {
        const auto present = service.routing_lock_.current_generation();
        if (routing_lock::is_stable(present) && matches_.recall(path, present))
            path_ = &matches_->text;
        else
            path_ = &own_path_.emplace(path);
    }
    request(const request&) = delete;
    request& operator=(const request&) = delete;

    void choose_parameters();
    void clear_outputs();
    bool DispatchRequest();
    void tell_monitors(const std::exception_ptr& failure);

private:
    bool redirection_pass();
    bool regular_passes();
    bool local_pass();
    bool fallback_pass();
    bool CheckRequestResult(bool processed) const;
    std::vector<declined_handler> declined_handlers() const;

    bool RunPriorityGroups(std::span<const request_match> handlers);
    bool RunHandlerPass(std::span<const request_match> handlers, bool stop_at_first);
    void InvokeRequestHandler(const request_match& match, const request_handler& handler);

    void update_matches();
    void keep_path();
    bool call_handler(const request_handler& handler);
    void enter_stage(std::int32_t stage);

    /// Given to handlers and monitors, the same to all. Not the caller's text, which may lie
    /// in an output.
    const std::string& path() const noexcept { return *path_; }

    RequestRoutingImpl& service_;
    message_scope message_{*service_.threads_};
    observation observed_{*service_.monitors_, message_};
    const parameter_names& names_;
    current_matches<request_matches> matches_{service_.records_, message_}; // of a pass
    const std::string* path_; // that of the first matches, where they were remembered
    std::optional<std::string> own_path_;
    std::shared_ptr<const request_matches> first_matches_; // once others have taken their place
    const request_data& data_;
    request_answer& response_;
    request_answer& error_response_;
    const routing_parameters& callers_parameters_;
    working_parameters parameters_;
    const request_match* processing_ = nullptr; // the handler that answered true
};

} // namespace zel::event_routing::impl
