// The module object: owner of the services, reached through the exports.
#pragma once

#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/module/named_event_routings.h"
#include "framework/event_routing/src/event_routing/requests/request_routing_impl.h"
#include "framework/event_routing/src/event_routing/snowballs/snowball_routing_impl.h"

#include <event_routing/module.h>
#include <tasklib/registrations.h>

#include <atomic>

namespace zel::event_routing::impl {

/// The base text, a fixed text and the number. Throws std::length_error for a
/// base that leaves no room for them.
std::string unique_name(std::string_view base, std::uint32_t number);

class ThisModule final : public IModule, public std::enable_shared_from_this<ThisModule> {
public:
    ThisModule();
    /// Takes its own handlers back, then ends and waits for the asynchronous parts of the
    /// default event service.
    ~ThisModule() override;

    void ReservedHook1() override {}
    void ReservedHook2() override {}
    std::shared_ptr<IEventRouting> GetEventRouting() override;
    std::shared_ptr<IEventRouting> GetNamedEventRouting(const std::string& name) override;
    std::shared_ptr<IRequestRouting> GetRequestRouting() override;
    std::shared_ptr<ISnowballRouting> GetSnowballRouting() override;
    std::shared_ptr<IInWndProcHandling>
    GetInWndProcHandling(platform::window_handle window) override;
    std::vector<std::uint8_t>
    SerializeRoutingParameters(const routing_parameters& parameters) override;
    routing_parameters DeserializeRoutingParameters(const std::uint8_t* data,
                                                    std::size_t size) override;
    std::string CreateUniqueName(const std::string& base) override;
    std::uint32_t NextEventMessageId() override;
    std::uint32_t NextRequestMessageId() override;
    std::uint32_t NextSnowballMessageId() override;

    /// The handlers that clients still have registered, for a person who has to find out who
    /// holds the module: "events 'a.b' (title bar), requests 'c' (dictionary)". Not all of
    /// many.
    std::string describe_registrations();

private:
    // They go in the reverse order of their making.
    const std::shared_ptr<EventRoutingImpl> event_routing_;
    named_event_routings named_event_routings_;
    const std::shared_ptr<RequestRoutingImpl> request_routing_;
    const std::shared_ptr<SnowballRoutingImpl> snowball_routing_;
    // Relaxed increments: only the numbers themselves must differ.
    std::atomic<std::uint32_t> unique_names_{0};
    tasklib::registrations registrations_; // of the module's own handlers
};

} // namespace zel::event_routing::impl
