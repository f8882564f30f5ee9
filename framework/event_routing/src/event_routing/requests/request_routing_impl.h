// The request routing service.
#pragma once

#include "framework/event_routing/src/event_routing/monitors/message_observation.h"
#include "framework/event_routing/src/event_routing/requests/request_matches.h"
#include "framework/event_routing/src/event_routing/routing/current_matches.h"

#include <event_routing/event_routing.h>
#include <event_routing/request_handling_info.h>
#include <event_routing/request_routing.h>

namespace zel::event_routing::impl {

class RequestRouting : public IRequestRouting {};

class RequestRoutingImpl final : public RequestRouting,
                                 public std::enable_shared_from_this<RequestRoutingImpl> {
public:
    /// `events` is told of new regular handlers while it lives.
    explicit RequestRoutingImpl(std::weak_ptr<IEventRouting> events);
    ~RequestRoutingImpl() override;

    bool SendRequest(const std::string& path, const request_data& data, request_answer& response,
                     request_answer& error_response, const routing_parameters& parameters) override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterRequestHandler(const std::string& path, std::int32_t priority,
                           const request_handler& handler, const std::string& description) override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterRequestFallbackHandler(const std::string& path, const request_handler& handler,
                                   const std::string& description) override;
    std::vector<std::pair<std::string, std::string>> GetRequestHandlers() override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(request_monitor monitor) override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterRequestRedirectionHandler(const std::string& path, const request_handler& handler,
                                      const std::string& description) override;
    void WaitForTasks() override {}

    /// Run by the cookie of a handler.
    void Unregister(request_routing_node::registration position);
    /// Its first half: the handler, which is out of the map and gets no more calls.
    std::shared_ptr<request_routing_node::registered_handler>
    take_out(request_routing_node::registration position);
    /// Where calls of the handlers are announced.
    thread_records& threads() const noexcept { return *threads_; }

private:
    class request;

    using observation = message_observation<monitor::request_handling_info_3>;

    /// The names of the parameters that steer a request. A look-up needs strings, which are
    /// made once here.
    struct parameter_names {
        const std::string suppression = parameter::suppress_not_processed_exception;
        const std::string local_preference = parameter::prefer_local_request_handlers;
        const std::string no_fallbacks = parameter::skip_request_fallbacks;
        const std::string target_session = parameter::target_session;
    };

    static void notify_of_registration(IEventRouting& events, const std::string& path);

    void find_matches(current_matches<request_matches>& matches, std::string_view path);

    const std::shared_ptr<thread_records> threads_ = thread_records::shared();
    const parameter_names parameter_names_;
    const std::weak_ptr<IEventRouting> events_;
    routing_lock routing_lock_;
    request_maps maps_ ZEL_GUARDED_BY(routing_lock_);
    match_records<request_matches> records_{*threads_};
    std::shared_ptr<observation::monitors> monitors_;
};

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::impl::RequestRoutingImpl> {
    static std::string text() { return "class zel::event_routing::impl::RequestRoutingImpl"; }
};
