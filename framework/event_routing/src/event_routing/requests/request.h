// One request on its way. Lives on the stack of SendRequest, whose steps and passes are
// the functions of this class.
#pragma once

#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/routing/current_matches.h"

#include <exception>
#include <span>

namespace zel::event_routing::impl {

class RequestRoutingImpl::request {
public:
    request(RequestRoutingImpl& service, const std::string& path, const request_data& data,
            request_answer& response, request_answer& error_response,
            const routing_parameters& parameters)
        : service_(service), names_(service.parameter_names_),
          remembered_(remembered_matches(service.records_, service.routing_lock_, text_key(path))),
          matches_(remembered_.get()), data_(data), response_(response),
          error_response_(error_response), callers_parameters_(parameters),
          parameters_(parameters) {
        if (!remembered_)
            path_ = path;
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

    bool RunPriorityGroups(std::span<const request_match> handlers);
    bool RunHandlerPass(std::span<const request_match> handlers, bool stop_at_first);
    void InvokeRequestHandler(const request_match& match, const request_handler& handler);

    void update_matches();
    bool call_handler(const request_handler& handler);
    void enter_stage(std::int32_t stage);

    /// Given to handlers and monitors, the same text to all of them: one of them may keep a
    /// view of it until the request ends. Not the caller's, which may lie in an output.
    const std::string& path() const noexcept { return remembered_ ? remembered_->text : path_; }

    RequestRoutingImpl& service_;
    observation observed_{*service_.monitors_};
    const parameter_names& names_;
    std::string path_; // where nothing was remembered when the request began
    std::shared_ptr<const request_matches> remembered_; // what was, and has the path
    std::shared_ptr<const request_matches> renewed_;    // for the registrations since then
    const request_matches* matches_; // one of the two, as they were when a pass began
    const request_data& data_;
    request_answer& response_;
    request_answer& error_response_;
    const routing_parameters& callers_parameters_;
    working_parameters parameters_;
    const request_match* processing_ = nullptr; // the handler that answered true
};

} // namespace zel::event_routing::impl
