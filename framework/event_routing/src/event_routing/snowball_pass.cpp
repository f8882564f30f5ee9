// The road of one snowball, from top to bottom.
#include "framework/event_routing/src/event_routing/handler_failures.h"
#include "framework/event_routing/src/event_routing/measurement.h"
#include "framework/event_routing/src/event_routing/message_counters.h"
#include "framework/event_routing/src/event_routing/snowball_routing_impl.h"
#include "framework/event_routing/src/event_routing/working_parameters.h"

#include <event_routing/snowball_handling_info.h>
#include <platform/diagnostics.h>

#include <exception>
#include <optional>

namespace zel::event_routing::impl {

/// Lives on the stack of SendSnowball, whose steps are its functions.
class SnowballRoutingImpl::snowball_pass {
public:
    snowball_pass(SnowballRoutingImpl& service, const std::string& path, const snowball_data& data,
                  snowball_result& response, snowball_result& error_response,
                  const routing_parameters& parameters) noexcept
        : service_(service), path_(path), data_(data), response_(response),
          error_response_(error_response), parameters_(parameters) {}
    snowball_pass(const snowball_pass&) = delete;
    snowball_pass& operator=(const snowball_pass&) = delete;

    void take_monitors();
    void choose_parameters();
    void DispatchSnowball();
    void tell_monitors(const std::exception_ptr& failure);

private:
    /// For monitors; empty without any.
    struct observation {
        measurement begin;
        monitor::snowball_handling_info_3 info;
    };

    void observe_call(const snowball_routing_node::collected_handler& match,
                      const snowball_handler& handler);
    void call_handler(const snowball_handler& handler) {
        handler(path_, data_, response_, error_response_, *parameters_);
    }

    SnowballRoutingImpl& service_;
    const std::string& path_;
    const snowball_data& data_;
    snowball_result& response_;
    snowball_result& error_response_;
    working_parameters parameters_;
    monitors::snapshot monitors_;
    std::optional<observation> observed_;
};

void SnowballRoutingImpl::SendSnowball(const std::string& path, const snowball_data& data,
                                       snowball_result& response, snowball_result& error_response,
                                       const routing_parameters& parameters) {
    snowball_pass pass(*this, path, data, response, error_response, parameters);
    pass.take_monitors();
    pass.choose_parameters();
    try {
        pass.DispatchSnowball();
    } catch (...) {
        pass.tell_monitors(std::current_exception());
        throw;
    }
    pass.tell_monitors(nullptr);
}

void SnowballRoutingImpl::snowball_pass::take_monitors() {
    monitors_ = service_.monitors_->GetMonitors();
    if (!monitors_.empty())
        observed_.emplace();
}

void SnowballRoutingImpl::snowball_pass::choose_parameters() {
    if (!monitors_.empty() && !is_numbered(*parameters_))
        add_message_number(parameters_.copy(), next_snowball_message_id());
}

void SnowballRoutingImpl::snowball_pass::DispatchSnowball() {
    const auto matches = service_.match(path_);
    for (const auto& match : matches->handlers) {
        const running_call handler(*match.handler);
        if (!handler)
            continue;
        if (observed_)
            observe_call(match, handler->function);
        else
            call_handler(handler->function);
    }
}

void SnowballRoutingImpl::snowball_pass::observe_call(
    const snowball_routing_node::collected_handler& match, const snowball_handler& handler) {
    auto& info = observed_->info;
    info.current_handler = {match.level, match.handler->description};
    {
        const measured_call measured(*info.current_handler);
        call_handler(handler);
    }
    info.called_handlers.push_back(std::move(*info.current_handler));
    info.current_handler.reset();
}

void SnowballRoutingImpl::snowball_pass::tell_monitors(const std::exception_ptr& failure) {
    if (!observed_)
        return;
    const platform::no_cancellation to_the_end;
    const auto failure_to_tell = platform::guarded([&] {
        observed_->begin.end_into(observed_->info);
        monitors::NotifyMonitors(monitors_, path_, data_, snowball_data(response_),
                                 snowball_data(error_response_), *parameters_, observed_->info,
                                 failure);
    });
    if (failure_to_tell)
        report_exception(failure_to_tell);
}

auto SnowballRoutingImpl::match(const std::string& path)
    -> std::shared_ptr<const snowball_matches> {
    const text_key key(path);
    const auto present = routing_lock_.current_generation();
    if (routing_lock::is_stable(present))
        if (auto known = records_.recall(key, present))
            return known;
    std::shared_ptr<snowball_matches> matches;
    {
        threading::shared_lock_guard map_is_stable(routing_lock_);
        snowball_routing_node::collected_handlers collected;
        handlers_.CollectHandlers(path, collected);
        matches = std::make_shared<snowball_matches>(key, routing_lock_.current_generation());
        matches->handlers.assign(collected.begin(), collected.end());
    }
    // What cannot be remembered is looked for again.
    if (routing_lock::is_stable(matches->generation))
        platform::guarded([&] { records_.remember(matches); });
    return matches;
}

} // namespace zel::event_routing::impl
