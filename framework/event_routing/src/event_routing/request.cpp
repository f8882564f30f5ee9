// The road of one request, from top to bottom.
#include "framework/event_routing/src/event_routing/request.h"

#include "framework/event_routing/src/event_routing/handler_failures.h"
#include "framework/event_routing/src/event_routing/message_counters.h"
#include "framework/event_routing/src/event_routing/request_failures.h"

#include <framework/serialization/data.h>

#include <platform/diagnostics.h>

#include <algorithm>

namespace zel::event_routing::impl {

namespace {

using namespace monitor;

// Handlers know by it that they are to answer only for themselves.
constexpr std::int64_t this_session = -3;

} // namespace

bool RequestRoutingImpl::SendRequest(const std::string& path, const request_data& data,
                                     request_answer& response, request_answer& error_response,
                                     const routing_parameters& parameters) {
    request sent(*this, path, data, response, error_response, parameters);
    sent.take_monitors();
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

void RequestRoutingImpl::request::take_monitors() {
    monitors_ = service_.monitors_->GetMonitors();
    if (!monitors_.empty())
        observed_.emplace();
}

void RequestRoutingImpl::request::choose_parameters() {
    if (!monitors_.empty() && !is_numbered(callers_parameters_))
        add_message_number(parameters_.copy(), next_request_message_id());
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
    service_.bring_up_to_date(key_, known_);
    const auto matches = known_;
    if (matches->redirections.empty())
        return false;
    enter_stage(request_stage::redirection);
    return RunHandlerPass(matches->redirections, true);
}

// Both passes work on the same handlers.
bool RequestRoutingImpl::request::regular_passes() {
    service_.bring_up_to_date(key_, known_);
    const auto matches = known_;
    if (parameters_.erase(names_.local_preference) && local_pass(matches->regular))
        return true;
    enter_stage(request_stage::regular);
    return RunPriorityGroups(matches->regular);
}

bool RequestRoutingImpl::request::local_pass(std::span<const request_match> handlers) {
    const auto callers = parameters_->find(names_.target_session);
    const bool is_there = callers != parameters_->end();
    if (is_there && callers->second.number == this_session)
        return false; // what the regular pass is going to do anyway
    const auto kept = is_there ? callers->second : routing_parameter_value();
    parameters_.copy()[names_.target_session] = this_session;
    enter_stage(request_stage::local);
    const bool processed = RunPriorityGroups(handlers);
    if (is_there)
        parameters_.copy()[names_.target_session] = kept;
    else
        parameters_.copy().erase(names_.target_session);
    return processed;
}

bool RequestRoutingImpl::request::fallback_pass() {
    if (parameters_->contains(names_.no_fallbacks))
        return false;
    service_.bring_up_to_date(key_, known_);
    const auto matches = known_;
    enter_stage(request_stage::fallback);
    return RunHandlerPass(matches->fallbacks, false);
}

bool RequestRoutingImpl::request::CheckRequestResult(bool processed) const {
    if (callers_parameters_.contains(names_.suppression))
        return processed;
    if (!processed)
        throw_not_processed(known_->text, callers_parameters_);
    return !error_response_ || !error_response_->GetData();
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
        const running_call handler(*match.handler);
        if (!handler)
            continue;
        InvokeRequestHandler(match, handler->function);
        if (processing_ && stop_at_first)
            return true;
        if (observed_)
            observed_->info.current_handler.reset();
    }
    return processing_ != nullptr;
}

void RequestRoutingImpl::request::InvokeRequestHandler(const request_match& match,
                                                       const request_handler& handler) {
    if (observed_)
        observed_->info.current_handler = {match.level, match.handler->description};
    const bool answer = call_handler(handler);
    if (answer && processing_)
        throw_processed_twice(known_->text, *parameters_, *processing_, match);
    if (answer)
        processing_ = &match;
    if (!observed_)
        return;
    auto& info = observed_->info;
    if (answer)
        info.processing_handler = info.current_handler;
    else
        info.declined_handlers.push_back(*info.current_handler);
}

bool RequestRoutingImpl::request::call_handler(const request_handler& handler) {
    const auto call = [&] {
        return handler(known_->text, data_, response_, error_response_, *parameters_);
    };
    if (!observed_)
        return call();
    const measured_call measured(*observed_->info.current_handler);
    return call();
}

void RequestRoutingImpl::request::enter_stage(std::int32_t stage) {
    if (observed_)
        observed_->info.stage = stage;
}

void RequestRoutingImpl::request::tell_monitors(const std::exception_ptr& failure) {
    if (!observed_)
        return;
    const platform::no_cancellation to_the_end;
    const auto failure_to_tell = platform::guarded([&] {
        observed_->begin.end_into(observed_->info);
        monitors::NotifyMonitors(monitors_, path_, data_, request_data(response_),
                                 request_data(error_response_), *parameters_, observed_->info,
                                 failure);
    });
    if (failure_to_tell)
        report_exception(failure_to_tell);
}

} // namespace zel::event_routing::impl
