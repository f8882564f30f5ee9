#include "tools/inspect/monitors.h"

#include "tools/inspect/services.h"

namespace inspect {

using namespace zel::event_routing;

namespace {

void count_call(traffic& counts, const std::string& service,
                const zel::event_routing::monitor::handler_record& call) {
    counts.count_call(service, call.level, call.description, call.elapsed_time);
}

} // namespace

monitors::monitors(const host& components, traffic& counts)
    : components_(components), counts_(counts) {
    watch_events(components.events(), title_of({handler_type::event, {}, {}}));
    watch_requests();
    watch_snowballs();
    follow_channels();
}

void monitors::follow_channels() {
    for (const service& found : enumerate_services(components_.requests()))
        if (found.channel && channels_.insert(*found.channel).second)
            watch_events(*components_.channel(*found.channel), title_of(found));
}

void monitors::watch_events(IEventRouting& events, const std::string& service) {
    counts_.expect(service);
    cookies_.push_back(events.RegisterMonitorHandler(
        [&counts = counts_, service](const std::string& path, const event_data&,
                                     const routing_parameters&,
                                     const monitor::event_handling_info_2& info) {
            if (info.handler_info)
                counts.count_call(service, info.handler_info->first, info.handler_info->second,
                                  info.elapsed_time);
            else
                counts.count_message(service, path, false);
        }));
}

void monitors::watch_requests() {
    const std::string service = title_of({handler_type::request, {}, {}});
    counts_.expect(service);
    cookies_.push_back(components_.requests().RegisterMonitorHandler(
        [&counts = counts_,
         service](const std::string& path, const request_data&, const request_data&,
                  const request_data&, const routing_parameters& parameters,
                  const monitor::request_handling_info_3& info, const std::exception_ptr& error) {
            if (parameters.contains(own_request))
                return;
            counts.count_message(service, path, error != nullptr);
            for (const auto& declined : info.declined_handlers)
                count_call(counts, service, declined);
            if (info.processing_handler)
                count_call(counts, service, *info.processing_handler);
            // Only of a call that threw: for a redirection that has answered, this is the same
            // call once more.
            if (info.current_handler && info.stage != monitor::request_stage::result_check && error)
                count_call(counts, service, *info.current_handler);
        }));
}

void monitors::watch_snowballs() {
    const std::string service = title_of({handler_type::snowball, {}, {}});
    counts_.expect(service);
    cookies_.push_back(components_.snowballs().RegisterMonitorHandler(
        [&counts = counts_,
         service](const std::string& path, const snowball_data&, const snowball_data&,
                  const snowball_data&, const routing_parameters&,
                  const monitor::snowball_handling_info_3& info, const std::exception_ptr& error) {
            counts.count_message(service, path, error != nullptr);
            for (const auto& called : info.called_handlers)
                count_call(counts, service, called);
            if (info.current_handler)
                count_call(counts, service, *info.current_handler);
        }));
}

} // namespace inspect
