// The road of one snowball, from top to bottom.
#include "framework/event_routing/src/event_routing/snowballs/snowball_routing_impl.h"

#include <algorithm>
#include <exception>

namespace zel::event_routing::impl {

/// Lives on the stack of SendSnowball, whose steps are its functions.
class SnowballRoutingImpl::snowball_pass {
public:
    snowball_pass(SnowballRoutingImpl& service, const std::string& path, const snowball_data& data,
                  snowball_result& response, snowball_result& error_response,
                  const routing_parameters& parameters)
        : service_(service), path_(path), data_(data), response_(response),
          error_response_(error_response), parameters_(parameters) {}
    snowball_pass(const snowball_pass&) = delete;
    snowball_pass& operator=(const snowball_pass&) = delete;

    void choose_parameters();
    void DispatchSnowball();
    void tell_monitors(const std::exception_ptr& failure);

private:
    void observe_call(const snowball_routing_node::collected_handler& match,
                      const snowball_handler& handler);
    void call_handler(const snowball_handler& handler) {
        handler(path_, data_, response_, error_response_, *parameters_);
    }

    SnowballRoutingImpl& service_;
    message_scope message_{*service_.threads_};
    observation observed_{*service_.monitors_, message_};
    current_matches<snowball_matches> matches_{service_.records_, message_};
    const std::string& path_;
    const snowball_data& data_;
    snowball_result& response_;
    snowball_result& error_response_;
    working_parameters parameters_;
};

void SnowballRoutingImpl::SendSnowball(const std::string& path, const snowball_data& data,
                                       snowball_result& response, snowball_result& error_response,
                                       const routing_parameters& parameters) {
    snowball_pass pass(*this, path, data, response, error_response, parameters);
    pass.choose_parameters();
    try {
        pass.DispatchSnowball();
    } catch (...) {
        pass.tell_monitors(std::current_exception());
        throw;
    }
    pass.tell_monitors(nullptr);
}

void SnowballRoutingImpl::snowball_pass::choose_parameters() {
    observed_.add_number(parameters_, &next_snowball_message_id);
}

void SnowballRoutingImpl::snowball_pass::DispatchSnowball() {
    service_.find_matches(matches_, path_);
    for (const auto& match : matches_->handlers) {
        const announced_call handler(message_, removal_waits::yes, *match.handler);
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
    observed_->current_handler = {match.level, match.handler->description};
    {
        const measured_call measured(*observed_->current_handler);
        call_handler(handler);
    }
    observed_->called_handlers.push_back(std::move(*observed_->current_handler));
    observed_->current_handler.reset();
}

void SnowballRoutingImpl::snowball_pass::tell_monitors(const std::exception_ptr& failure) {
    if (observed_)
        observed_.tell(path_, data_, response_, error_response_, *parameters_, failure);
}

bool SnowballRoutingImpl::snowball_matches::contains(const retirable_base& handler) const noexcept {
    return std::ranges::any_of(handlers,
                               [&](const auto& match) { return match.handler.get() == &handler; });
}

void SnowballRoutingImpl::find_matches(current_matches<snowball_matches>& matches,
                                       std::string_view path) {
    matches.update(routing_lock_, path,
                   // Under the lock, which the analysis cannot see from here.
                   [&](routing_lock::generation present)
                       ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
                           snowball_routing_node::collected_handlers collected;
                           handlers_.CollectHandlers(path, collected);
                           auto made = std::make_shared<snowball_matches>(path, present);
                           made->handlers.assign(std::make_move_iterator(collected.begin()),
                                                 std::make_move_iterator(collected.end()));
                           return made;
                       });
}

} // namespace zel::event_routing::impl
