// The road of one request, from top to bottom.
#include "framework/event_routing/src/event_routing/requests/request.h"

#include "framework/event_routing/src/event_routing/requests/request_failures.h"
#include "framework/serialization/data.h"

#include <event_routing/typed/typed_request_handler.h>

#include <algorithm>
#include <optional>

namespace zel::event_routing::impl {

namespace {

using namespace monitor;

void append_declined(std::vector<declined_handler>& declined, const message_scope& message,
                     std::span<const request_match> handlers, const request_data& data) {
    for (const auto& match : handlers) {
        const announced_call handler(message, removal_waits::yes, *match.handler);
        if (!handler)
            continue;
        std::string wanted_type;
        if (const auto* const typed =
                handler->function.target<event_routing::detail::typed_request_handler>())
            wanted_type = typed->type_wanted_instead_of(data);
        declined.push_back({match.level, match.handler->description, std::move(wanted_type)});
    }
}

} // namespace

bool RequestRoutingImpl::SendRequest(const std::string& path, const request_data& data,
                                     request_answer& response, request_answer& error_response,
                                     const routing_parameters& parameters) {
    request sent(*this, path, data, response, error_response, parameters);
    sent.choose_parameters();
    sent.clear_outputs();
    bool result = false;
    try {
        result = sent.DispatchRequest();
    } catch (...) {
        sent.tell_monitors(std::current_exception());
        throw;
    }
    sent.tell_monitors(nullptr);
    return result;
}

void RequestRoutingImpl::request::choose_parameters() {
    observed_.add_number(parameters_, &next_request_message_id);
}

void RequestRoutingImpl::request::clear_outputs() {
    response_.reset();
    error_response_.reset();
}

bool RequestRoutingImpl::request::DispatchRequest() {
    parameters_.erase(names_.suppression);
    const bool processed = redirection_pass() || regular_passes() || fallback_pass();
    enter_stage(request_stage::result_check);
    return CheckRequestResult(processed);
}

bool RequestRoutingImpl::request::redirection_pass() {
    update_matches();
    if (matches_->redirections.empty())
        return false;
    enter_stage(request_stage::redirection);
    return RunHandlerPass(matches_->redirections, true);
}

// Both passes work on the same handlers.
bool RequestRoutingImpl::request::regular_passes() {
    update_matches();
    if (parameters_.erase(names_.local_preference) && local_pass())
        return true;
    enter_stage(request_stage::regular);
    return RunPriorityGroups(matches_->regular);
}

bool RequestRoutingImpl::request::local_pass() {
    const auto callers = parameters_->find(names_.target_session);
    const bool is_there = callers != parameters_->end();
    if (is_there && callers->second.number == this_session)
        return false; // what the regular pass is going to do anyway
    const auto kept = is_there ? callers->second : routing_parameter_value();
    parameters_.copy()[names_.target_session] = this_session;
    enter_stage(request_stage::local);
    const bool processed = RunPriorityGroups(matches_->regular);
    if (is_there)
        parameters_.copy()[names_.target_session] = kept;
    else
        parameters_.copy().erase(names_.target_session);
    return processed;
}

bool RequestRoutingImpl::request::fallback_pass() {
    if (parameters_->contains(names_.no_fallbacks))
        return false;
    update_matches();
    enter_stage(request_stage::fallback);
    return RunHandlerPass(matches_->fallbacks, false);
}

bool RequestRoutingImpl::request::CheckRequestResult(bool processed) const {
    if (callers_parameters_.contains(names_.suppression))
        return processed;
    if (!processed)
        throw_not_processed(path(), callers_parameters_, declined_handlers());
    return !error_response_ || !error_response_->GetData();
}

// Found out once the request has failed, so that those that are answered pay nothing. Who
// stands in the last matches was asked and has declined, unless it came or went meanwhile.
std::vector<declined_handler> RequestRoutingImpl::request::declined_handlers() const {
    std::vector<declined_handler> declined;
    append_declined(declined, message_, matches_->redirections, data_);
    append_declined(declined, message_, matches_->regular, data_);
    if (!parameters_->contains(names_.no_fallbacks))
        append_declined(declined, message_, matches_->fallbacks, data_);
    return declined;
}

// Handlers that came since take part, and those that went do not.
void RequestRoutingImpl::request::update_matches() {
    const auto present = service_.routing_lock_.current_generation();
    if (matches_ && matches_->generation == present && routing_lock::is_stable(present))
        return;
    keep_path();
    service_.find_matches(matches_, path());
}

// Handlers may go on referring to the path when other matches take the place of those that
// it belongs to.
void RequestRoutingImpl::request::keep_path() {
    if (!own_path_ && !first_matches_)
        first_matches_ = matches_.share();
}

bool RequestRoutingImpl::request::RunPriorityGroups(std::span<const request_match> handlers) {
    while (!handlers.empty()) {
        const auto end =
            std::find_if(handlers.begin(), handlers.end(), [&](const request_match& other) {
                return other.priority != handlers.front().priority;
            });
        const auto group = handlers.first(static_cast<std::size_t>(end - handlers.begin()));
        if (RunHandlerPass(group, false))
            return true;
        handlers = handlers.subspan(group.size());
    }
    return false;
}

// All handlers of a level are asked, even when one of them has answered; less specific
// ones then are not.
bool RequestRoutingImpl::request::RunHandlerPass(std::span<const request_match> handlers,
                                                 bool stop_at_first) {
    std::optional<std::int32_t> level;
    for (const auto& match : handlers) {
        if (processing_ && match.level != level)
            return true;
        level = match.level;
        const announced_call handler(message_, removal_waits::yes, *match.handler);
        if (!handler)
            continue;
        InvokeRequestHandler(match, handler->function);
        if (processing_ && stop_at_first)
            return true;
        if (observed_)
            observed_->current_handler.reset();
    }
    return processing_ != nullptr;
}

void RequestRoutingImpl::request::InvokeRequestHandler(const request_match& match,
                                                       const request_handler& handler) {
    if (observed_)
        observed_->current_handler = {match.level, match.handler->description};
    const bool answer = call_handler(handler);
    if (answer && processing_)
        throw_processed_twice(path(), *parameters_, *processing_, match);
    if (answer)
        processing_ = &match;
    if (!observed_)
        return;
    if (answer)
        observed_->processing_handler = observed_->current_handler;
    else
        observed_->declined_handlers.push_back(*observed_->current_handler);
}

bool RequestRoutingImpl::request::call_handler(const request_handler& handler) {
    const auto call = [&] {
        return handler(path(), data_, response_, error_response_, *parameters_);
    };
    if (!observed_)
        return call();
    const measured_call measured(*observed_->current_handler);
    return call();
}

void RequestRoutingImpl::request::enter_stage(std::int32_t stage) {
    if (observed_)
        observed_->stage = stage;
}

void RequestRoutingImpl::request::tell_monitors(const std::exception_ptr& failure) {
    if (observed_)
        observed_.tell(path(), data_, response_, error_response_, *parameters_, failure);
}

} // namespace zel::event_routing::impl
