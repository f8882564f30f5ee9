// One request on its way. Lives on the stack of SendRequest, whose steps and passes are
// the functions of this class.
#pragma once

#include "framework/event_routing/src/event_routing/measurement.h"
#include "framework/event_routing/src/event_routing/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/working_parameters.h"

#include <event_routing/request_handling_info.h>

#include <exception>
#include <optional>
#include <span>

namespace zel::event_routing::impl {

class RequestRoutingImpl::request {
public:
    request(RequestRoutingImpl& service, const std::string& path, const request_data& data,
            request_answer& response, request_answer& error_response,
            const routing_parameters& parameters) noexcept
        : service_(service), names_(service.names_), path_(path), data_(data), response_(response),
          error_response_(error_response), callers_parameters_(parameters),
          parameters_(parameters) {}
    request(const request&) = delete;
    request& operator=(const request&) = delete;

    void take_monitors();
    void choose_parameters();
    void clear_outputs();
    bool DispatchRequest();
    void tell_monitors(const std::exception_ptr& failure);

private:
    /// For monitors; empty without any.
    struct observation {
        measurement begin;
        monitor::request_handling_info_3 info;
    };

    bool redirection_pass();
    bool regular_passes();
    bool local_pass(std::span<const request_match> handlers);
    bool fallback_pass();
    bool CheckRequestResult(bool processed) const;

    bool RunPriorityGroups(std::span<const request_match> handlers);
    bool RunHandlerPass(std::span<const request_match> handlers, bool stop_at_first);
    void InvokeRequestHandler(const request_match& match, const request_handler& handler);

    bool call_handler(const request_handler& handler);
    void enter_stage(std::int32_t stage);

    RequestRoutingImpl& service_;
    const parameter_names& names_;
    const std::string& path_;
    const request_data& data_;
    request_answer& response_;
    request_answer& error_response_;
    const routing_parameters& callers_parameters_;
    working_parameters parameters_;
    monitors::snapshot monitors_;
    std::optional<observation> observed_;
    const text_key key_{path_};
    std::shared_ptr<const request_matches> known_;
    const request_match* processing_ = nullptr; // the handler that answered true
};

} // namespace zel::event_routing::impl
