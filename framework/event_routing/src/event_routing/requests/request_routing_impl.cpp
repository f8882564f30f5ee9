#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"

#include "framework/event_routing/src/event_routing/routing/debugging.h"
#include "framework/event_routing/src/event_routing/routing/registration.h"
#include "framework/serialization/serialization_modules.h"
#include "framework/serialization/standard_data.h"

namespace zel::event_routing::impl {

namespace {

constinit log::source_position
    registering("event_routing/framework/event_routing/src/event_routing/request_routing_impl.cpp",
                61);
constinit log::source_position registering_fallback(
    "event_routing/framework/event_routing/src/event_routing/request_routing_impl.cpp", 78);
constinit log::source_position registering_redirection(
    "event_routing/framework/event_routing/src/event_routing/request_routing_impl.cpp", 95);

} // namespace

RequestRoutingImpl::RequestRoutingImpl(std::weak_ptr<IEventRouting> events)
    : events_(std::move(events)), monitors_(std::make_shared<observation::monitors>(threads_)) {}

RequestRoutingImpl::~RequestRoutingImpl() {
    const platform::no_cancellation to_the_end;
    monitors_.reset(); // their callables are foreign code
}

std::shared_ptr<tasklib::keep_registered>
RequestRoutingImpl::RegisterRequestHandler(const std::string& path, std::int32_t priority,
                                           const request_handler& handler,
                                           const std::string& description) {
    routing_log.announce(log::severity::registration, registering,
                         [&] { return "Registering request handler for " + path + "."; });
    const prepared_handler<request_routing_node> prepared(
        path, handler, RequestRoutingNodeAdditionalData{priority}, description);
    const auto events = events_.lock(); // may be the last reference, so it outlives the hold
    threading::exclusive_lock_guard maps_are_mine(routing_lock_);
    auto cookie = register_handler(*this, maps_.handlers, prepared);
    if (events)
        notify_of_registration(*events, path);
    return cookie;
}

std::shared_ptr<tasklib::keep_registered> RequestRoutingImpl::RegisterRequestFallbackHandler(
    const std::string& path, const request_handler& handler, const std::string& description) {
    routing_log.announce(log::severity::registration, registering_fallback, [&] {
        return "Registering request fallback handler for " + path + ". Description: " + description;
    });
    const prepared_handler<request_routing_node> prepared(
        path, handler, RequestRoutingNodeAdditionalData(), description);
    threading::exclusive_lock_guard maps_are_mine(routing_lock_);
    return register_handler(*this, maps_.fallbacks, prepared);
}

std::shared_ptr<tasklib::keep_registered> RequestRoutingImpl::RegisterRequestRedirectionHandler(
    const std::string& path, const request_handler& handler, const std::string& description) {
    routing_log.announce(log::severity::registration, registering_redirection, [&] {
        return "Registering request redirection handler for " + path +
               ". Description: " + description;
    });
    const prepared_handler<request_routing_node> prepared(
        path, handler, RequestRoutingNodeAdditionalData(), description);
    threading::exclusive_lock_guard maps_are_mine(routing_lock_);
    return register_handler(*this, maps_.redirections, prepared);
}

// The caller holds the routing lock, so whoever is told may rely on the handler, and
// nobody can ask it before.
void RequestRoutingImpl::notify_of_registration(IEventRouting& events, const std::string& path) {
    const auto holder = serialization::get_bin_serialization_module()->CreateData(
        serialization::string_data_t::name);
    const auto data = holder ? holder->GetData() : nullptr;
    auto* const text = dynamic_cast<serialization::string_data_t*>(data.get());
    if (!text)
        return;
    text->MutableValue() = path;
    events.BroadcastEvent("event_routing.request_handler.registered", holder, {}, nullptr);
}

void RequestRoutingImpl::find_matches(current_matches<request_matches>& matches,
                                      std::string_view path) {
    matches.update(routing_lock_, path,
                   // Under the lock, which the analysis cannot see from here.
                   [&](routing_lock::generation present) ZEL_THREAD_ATTRIBUTE(
                       no_thread_safety_analysis) { return match_request(path, present, maps_); });
}

void RequestRoutingImpl::Unregister(request_routing_node::registration position) {
    take_out(position)->finish(*threads_);
}

std::shared_ptr<request_routing_node::registered_handler>
RequestRoutingImpl::take_out(request_routing_node::registration position) {
    auto removed = unlink_handler<request_routing_node>(routing_lock_, position);
    threads_->close(*removed);
    return removed;
}

std::vector<std::pair<std::string, std::string>> RequestRoutingImpl::GetRequestHandlers() {
    threading::shared_lock_guard maps_are_stable(routing_lock_);
    return maps_.handlers.CollectAllHandlers();
}

std::shared_ptr<tasklib::keep_registered>
RequestRoutingImpl::RegisterMonitorHandler(request_monitor monitor) {
    return monitors_->RegisterMonitorHandler(std::move(monitor));
}

} // namespace zel::event_routing::impl
