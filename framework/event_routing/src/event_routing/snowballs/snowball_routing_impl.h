// The snowball routing service.
#pragma once

#include "framework/event_routing/src/event_routing/monitors/message_observation.h"
#include "framework/event_routing/src/event_routing/routing/current_matches.h"
#include "framework/event_routing/src/event_routing/routing/handler_type_name.h"
#include "framework/event_routing/src/event_routing/routing/routing_map.h"

#include <event_routing/snowball_handling_info.h>
#include <event_routing/snowball_routing.h>

namespace zel::event_routing::impl {

struct SnowballRoutingNodeAdditionalData {};

inline callable_code code_of(const snowball_handler& handler,
                             const SnowballRoutingNodeAdditionalData&) noexcept {
    return {"handler of snowballs", platform::image_that_made(handler)};
}

using snowball_routing_node = RoutingMapNode<snowball_handler, SnowballRoutingNodeAdditionalData>;

class SnowballRouting : public ISnowballRouting {};

class SnowballRoutingImpl final : public SnowballRouting,
                                  public std::enable_shared_from_this<SnowballRoutingImpl> {
public:
    SnowballRoutingImpl();
    ~SnowballRoutingImpl() override;

    void SendSnowball(const std::string& path, const snowball_data& data, snowball_result& response,
                      snowball_result& error_response,
                      const routing_parameters& parameters) override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterSnowballHandler(const std::string& path, const snowball_handler& handler,
                            const std::string& description) override;
    std::vector<std::pair<std::string, std::string>> GetSnowballHandlers() override;
    [[nodiscard]] std::shared_ptr<tasklib::keep_registered>
    RegisterMonitorHandler(snowball_monitor monitor) override;
    void WaitForTasks() override {}

    /// Run by the cookie of a handler.
    void Unregister(snowball_routing_node::registration position);
    /// Its first half: the handler, which is out of the map and gets no more calls.
    std::shared_ptr<snowball_routing_node::registered_handler>
    take_out(snowball_routing_node::registration position);
    /// Where calls of the handlers are announced.
    thread_records& threads() const noexcept { return *threads_; }

private:
    class snowball_pass;

    using observation = message_observation<monitor::snowball_handling_info_3>;

    struct snowball_matches final : matches_of_text {
        using matches_of_text::matches_of_text;
        std::size_t size() const noexcept override { return handlers.size(); }
        bool contains(const retirable_base& handler) const noexcept override;

        std::vector<snowball_routing_node::collected_handler> handlers;
    };

    void find_matches(current_matches<snowball_matches>& matches, std::string_view path);

    const std::shared_ptr<thread_records> threads_ = thread_records::shared();
    routing_lock routing_lock_;
    snowball_routing_node handlers_ ZEL_GUARDED_BY(routing_lock_);
    match_records<snowball_matches> records_{*threads_};
    std::shared_ptr<observation::monitors> monitors_;
};

} // namespace zel::event_routing::impl

template <>
struct zel::declared_type_name<zel::event_routing::snowball_handler> {
    static std::string text() { return event_routing::impl::handler_type_name("void"); }
};

template <>
struct zel::declared_type_name<zel::event_routing::impl::SnowballRoutingNodeAdditionalData> {
    static std::string text() {
        return "struct zel::event_routing::impl::SnowballRoutingNodeAdditionalData";
    }
};

template <>
struct zel::declared_type_name<zel::event_routing::impl::SnowballRoutingImpl> {
    static std::string text() { return "class zel::event_routing::impl::SnowballRoutingImpl"; }
};
