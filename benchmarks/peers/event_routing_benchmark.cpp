// This library, as its users call it.
#include "benchmarks/peers/bus_cases.h"
#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"

namespace zel::benchmarks {

namespace {

class event_routing_bus {
public:
    using token = std::shared_ptr<tasklib::keep_registered>;

    token subscribe(const std::string& path, counting_handler handler) {
        return service_->RegisterEventHandler(
            nullptr, path,
            [handler](const std::string& where, const event_data& data,
                      const routing_parameters& parameters) {
                handler(where, data, parameters);
                return true;
            },
            nullptr, "counts");
    }

    void broadcast(const std::string& path, const event_data& data,
                   const routing_parameters& parameters) {
        service_->BroadcastEvent(path, data, parameters, nullptr);
    }

private:
    // A service for each case: paths stay in its map for good.
    const std::shared_ptr<event_routing::IEventRouting> service_ =
        std::make_shared<event_routing::impl::EventRoutingImpl>();
};

[[maybe_unused]] const bool listed = compare_bus<event_routing_bus>("event_routing");

} // namespace

} // namespace zel::benchmarks
